// A serial stream and a phone of the stand-in daemon: many bytes each way at the same time, a program that
// reads slowly, a phone that disconnects in the middle. Every byte is checked.

#include "BleManager.h"
#include "Figures.h"
#include "GattApplication.h"
#include "LoadOptions.h"
#include "Simulator.h"
#include "StreamPattern.h"
#include "StreamPhone.h"

#include <plim/peripheral.h>

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <random>

namespace {

using plim::Central;
using plim::Stream;

constexpr qint64 megabyte = 1 << 20;
constexpr qint64 heapSlack = 1 << 20; // the stream's buffers, messages that wait

[[noreturn]] void fail(const QString& what)
{
    qFatal("FAILED: %s", qPrintable(what));
}

void waitUntil(const QString& what, const std::function<bool()>& condition)
{
    const QDeadlineTimer deadline(60000LL * slowness());
    while (!condition()) {
        if (deadline.hasExpired()) {
            fail(what + QStringLiteral(" has not come true"));
        }
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
}

/** The program's side: writes the pattern, and checks what it reads. */
class Device
{
public:
    explicit Device(const plim::StreamService& service)
        : m_app(nullptr, QStringLiteral("/stress"), QStringLiteral("org.example.Stress")),
          m_stream(&m_app, service)
    {
        QObject::connect(&m_stream, &Stream::bytesWritten, &m_context, [this](qint64 bytes) {
            m_taken += bytes;
            fill();
        });
        QObject::connect(&m_stream, &Stream::disconnected, &m_context,
                         [this](const Central&, qint64 unsentBytes, qint64 unreadBytes) {
                             m_unsent = unsentBytes;
                             m_unread = unreadBytes;
                             m_left = 0;
                         });
        BleManager::instance()->add(&m_app);
    }

    void send(qint64 bytes)
    {
        m_received = StreamPattern();
        m_sent = 0;
        m_taken = 0;
        m_left = bytes;
        fill();
    }
    /** Whether it reads at once, or only with read(). */
    void setSlow(bool isSlow)
    {
        QObject::disconnect(m_reads);
        if (!isSlow) {
            m_reads = QObject::connect(&m_stream, &Stream::readyRead, &m_context,
                                       [this] { read(m_stream.bytesAvailable()); });
        }
    }
    void read(qint64 most)
    {
        if (m_stream.isOpen()) {
            m_received.take(m_stream.read(most));
        }
    }

    Stream& stream() { return m_stream; }
    const StreamPattern& received() const { return m_received; }
    qint64 sent() const { return m_sent; }
    qint64 taken() const { return m_taken; }
    qint64 unsent() const { return m_unsent; }
    qint64 unread() const { return m_unread; }

private:
    void fill()
    {
        while (m_left > 0) {
            const int size = int(std::min<qint64>(m_left, 16384));
            const qint64 taken = m_stream.write(StreamPattern::bytes(m_sent, size));
            if (taken <= 0) {
                return;
            }
            m_sent += taken;
            m_left -= taken;
        }
    }
    QObject m_context;
    QMetaObject::Connection m_reads;
    StreamPattern m_received;
    qint64 m_sent = 0;
    qint64 m_taken = 0;
    qint64 m_left = 0;
    qint64 m_unsent = 0;
    qint64 m_unread = 0;
    GattApplication m_app;
    Stream m_stream;
};

void expectWhole(const char* where, const StreamPattern& received, qint64 bytes)
{
    if (received.firstWrong() >= 0 || received.count() != bytes) {
        fail(QStringLiteral("%1: %2 bytes, wrong from %3")
                 .arg(QLatin1String(where))
                 .arg(received.count())
                 .arg(received.firstWrong()));
    }
}

void begin(Device& device, Phone& phone, int writesAtOnce, bool withResponse)
{
    phone.begin(writesAtOnce, withResponse);
    waitUntil(QStringLiteral("the stream is open"),
              [&] { return device.stream().isOpen() && phone.isIdle(); });
}

void end(const Simulator& daemon, Device& device, Phone& phone)
{
    phone.loseLink();
    waitUntil(QStringLiteral("the stream has ended"),
              [&] { return !device.stream().isOpen() && phone.isIdle(); });
    // The daemon's connection to the bus is not the phone's: what was sent before must not arrive later.
    daemon.settle();
    phone.connectLink();
}

/** So many bytes each way at the same time. */
void runBothWays(const Simulator& daemon, Device& device, Phone& phone, qint64 bytes)
{
    QElapsedTimer time;
    time.start();
    begin(device, phone, 16, false);
    device.setSlow(false);
    device.send(bytes);
    phone.send(bytes);
    for (qint64 step = megabyte; step <= bytes; step += megabyte) {
        waitUntil(QStringLiteral("a further megabyte has arrived"),
                  [&] { return phone.received().count() >= step && device.received().count() >= step; });
    }
    waitUntil(QStringLiteral("everything has arrived"),
              [&] { return phone.received().count() >= bytes && device.received().count() >= bytes; });
    expectWhole("at the phone", phone.received(), bytes);
    expectWhole("at the stream", device.received(), bytes);
    const double seconds = double(time.elapsed()) / 1000;
    std::printf("%lld bytes each way in %.1f s, %.2f MB/s each\n", bytes, seconds,
                double(bytes) / 1e6 / seconds);
    end(daemon, device, phone);
}

/** A program that reads half of its buffer when the phone is told that there is no room. */
void runSlowReader(const Simulator& daemon, Device& device, Phone& phone, qint64 bytes)
{
    begin(device, phone, 1, true);
    device.setSlow(true);
    device.send(0);
    const int before = phone.rejections();
    const auto reading = QObject::connect(&phone, &Phone::rejected, &phone,
                                          [&] { device.read(device.stream().readBufferSize() / 2); });
    phone.send(bytes);
    waitUntil(QStringLiteral("the phone has written everything"),
              [&] { return phone.sent() == bytes && phone.isIdle(); });
    waitUntil(QStringLiteral("everything has arrived"), [&] {
        device.read(bytes);
        return device.received().count() >= bytes;
    });
    QObject::disconnect(reading);
    expectWhole("at the slow reader", device.received(), bytes);
    std::printf("%lld bytes to a slow reader, %d writes rejected and tried again\n", bytes,
                phone.rejections() - before);
    end(daemon, device, phone);
}

/** A phone that takes nothing now and then. */
void runSlowPhone(const Simulator& daemon, Device& device, Phone& phone, qint64 bytes)
{
    begin(device, phone, 1, true);
    bool isReading = true;
    int pauses = 0;
    QTimer change;
    QObject::connect(&change, &QTimer::timeout, &change, [&] {
        isReading = !isReading;
        pauses += isReading ? 0 : 1;
        phone.setReading(isReading);
    });
    change.start(50);
    device.send(bytes);
    waitUntil(QStringLiteral("everything has arrived"), [&] { return phone.received().count() >= bytes; });
    change.stop();
    phone.setReading(true);
    expectWhole("at the slow phone", phone.received(), bytes);
    std::printf("%lld bytes to a slow phone, %d pauses\n", bytes, pauses);
    end(daemon, device, phone);
}

/** The link is lost at any time: what has arrived is a beginning, and the rest is accounted for. */
void runLostLinks(const Simulator& daemon, Device& device, Phone& phone, int count, unsigned seed)
{
    std::mt19937 random(seed);
    device.setSlow(false);
    for (int i = 0; i < count; ++i) {
        begin(device, phone, 4, false);
        device.send(megabyte);
        phone.send(megabyte);
        const qint64 until = qint64(random() % (megabyte / 2));
        waitUntil(QStringLiteral("some bytes have arrived"), [&] {
            return phone.received().count() >= until / 8 && device.received().count() >= until / 8;
        });
        end(daemon, device, phone);
        const bool isAccounted = device.taken() + device.unsent() == device.sent() && device.unread() == 0;
        if (!isAccounted || phone.received().firstWrong() >= 0 || device.received().firstWrong() >= 0 ||
            phone.received().count() > device.sent() || device.received().count() > phone.sent()) {
            fail(QStringLiteral(
                     "lost link %1: stream sent %2, taken %3, unsent %4, unread %5, received %6, wrong "
                     "%7; phone sent %8, received %9, wrong ")
                     .arg(i)
                     .arg(device.sent())
                     .arg(device.taken())
                     .arg(device.unsent())
                     .arg(device.unread())
                     .arg(device.received().count())
                     .arg(device.received().firstWrong())
                     .arg(phone.sent())
                     .arg(phone.received().count()) +
                 QString::number(phone.received().firstWrong()));
        }
    }
    std::printf("%d lost links\n", count);
}

int run(bool hasSockets, qint64 bytes, int links, unsigned seed)
{
    Simulator daemon;
    plim::StreamService service;
    service.transport = plim::Characteristic::Transport::SocketsBothWays;
    if (!hasSockets) {
        service.transport = plim::Characteristic::Transport::Bus;
        service.rxAccess = plim::Access().write(); // or the phone is not told that the buffer is full
    }
    Device device(service);
    waitUntil(QStringLiteral("the application is registered"),
              [&] { return !daemon.applications().isEmpty(); });
    Phone phone(device.stream().rx()->dbusPath(), device.stream().tx()->dbusPath());
    runBothWays(daemon, device, phone, megabyte); // from here on, nothing grows
    const Figures first = Figures::now();
    runBothWays(daemon, device, phone, bytes);
    runSlowReader(daemon, device, phone, std::min(bytes, 4 * megabyte));
    if (hasSockets) {
        runSlowPhone(daemon, device, phone, std::min(bytes, 4 * megabyte));
    }
    runLostLinks(daemon, device, phone, links, seed);
    const Figures last = Figures::now();
    std::printf("before: %s\nafter:  %s\n", qPrintable(first.text()), qPrintable(last.text()));
    if (last.descriptors != first.descriptors || last.heap > first.heap + heapSlack + heapNoise()) {
        fail(QStringLiteral("more is held than before"));
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication program(argc, argv);
    LoadOptions options(7, QStringLiteral("Sends bytes through a serial stream, and checks each."));
    options.addCount(QStringLiteral("megabytes"), QStringLiteral("Megabytes each way."), 100);
    options.addCount(QStringLiteral("links"), QStringLiteral("Links that are lost."), 100);
    const QCommandLineOption bus(QStringLiteral("bus"), QStringLiteral("Without sockets."));
    options.addOption(bus);
    options.process(program);
    followObjects();
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    return run(!options.isSet(bus), options.count(QStringLiteral("megabytes")) * megabyte,
               int(options.count(QStringLiteral("links"))), options.seed());
}
