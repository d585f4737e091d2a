// A serial stream and a phone of the stand-in daemon: many bytes each way at the same time, a program that
// reads slowly, a phone that disconnects in the middle. Every byte is checked.

#include "BleManager.h"
#include "Figures.h"
#include "GattApplication.h"
#include "Simulator.h"
#include "StreamPattern.h"

#include <plim/peripheral.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDeadlineTimer>
#include <QElapsedTimer>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <random>

namespace {

using plim::Access;
using plim::Central;
using plim::Stream;

constexpr qint64 megabyte = 1 << 20;
constexpr int writeSize = 512;
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

/** The phone's side: writes the pattern, and checks what it is notified of. */
class Phone : public QObject
{
    Q_OBJECT

public:
    Phone(const QString& rx, const QString& tx) : m_rx(rx), m_tx(tx)
    {
        const QDBusMessage answer = Simulator::control(
            QStringLiteral("AddPhone"), {QStringLiteral("hci0"), QStringLiteral("00:AA:01:01:00:02")});
        m_path = answer.arguments().constFirst().value<QDBusObjectPath>().path();
        if (!QDBusConnection::systemBus().connect(service, m_path, interface, QStringLiteral("Notified"),
                                                  QStringLiteral("oay"), this,
                                                  SLOT(on_notified(QDBusMessage)))) {
            fail(QStringLiteral("no signals of the phone"));
        }
    }

    /** Subscribes; what it gets and sends begins anew. */
    void begin(int writesAtOnce, bool withResponse)
    {
        m_writesAtOnce = writesAtOnce;
        m_method = withResponse ? QStringLiteral("Write") : QStringLiteral("WriteWithoutResponse");
        m_received = StreamPattern();
        m_sent = 0;
        m_left = 0;
        call(QStringLiteral("Subscribe"),
             {QVariant::fromValue(QDBusObjectPath(m_tx)), QStringLiteral("notifications")}, {});
    }
    void send(qint64 bytes)
    {
        m_left = bytes;
        fill();
    }
    void connectLink() { call(QStringLiteral("Connect"), {}, {}); }
    void loseLink()
    {
        m_left = 0;
        call(QStringLiteral("Disconnect"), {}, {});
    }

    const StreamPattern& received() const { return m_received; }
    /** How many bytes it has written. */
    qint64 sent() const { return m_sent; }
    int rejections() const { return m_rejections; }
    bool isIdle() const { return m_open == 0; }

private slots:
    void on_notified(const QDBusMessage& signal)
    {
        if (signal.arguments().value(0).value<QDBusObjectPath>().path() == m_tx) {
            m_received.take(signal.arguments().value(1).toByteArray());
        }
    }

private:
    using Finished = std::function<void(const QDBusMessage& answer)>;

    void call(const QString& method, const QVariantList& arguments, const Finished& finished)
    {
        QDBusMessage message = QDBusMessage::createMethodCall(service, m_path, interface, method);
        message.setArguments(arguments);
        auto* watcher =
            new QDBusPendingCallWatcher(QDBusConnection::systemBus().asyncCall(message, 600000), this);
        ++m_open;
        connect(watcher, &QDBusPendingCallWatcher::finished, this,
                [this, finished](QDBusPendingCallWatcher* answered) {
                    answered->deleteLater();
                    --m_open;
                    if (finished) {
                        finished(answered->reply());
                    }
                });
    }

    void fill()
    {
        while (m_left > 0 && m_open < m_writesAtOnce) {
            const int size = int(std::min<qint64>(m_left, writeSize));
            QVariantList arguments{QVariant::fromValue(QDBusObjectPath(m_rx)),
                                   StreamPattern::bytes(m_sent, size)};
            if (m_method == QLatin1String("Write")) {
                arguments << QVariant::fromValue(ushort(0));
            }
            m_sent += size;
            m_left -= size;
            call(m_method, arguments, [this, size](const QDBusMessage& answer) {
                if (answer.errorMessage().startsWith(QLatin1String("0x81"))) {
                    ++m_rejections; // the only one that is open is tried again
                    m_sent -= size;
                    m_left += size;
                }
                fill();
            });
        }
    }

    const QString service = QStringLiteral("org.plim.BluezSimulator");
    const QString interface = QStringLiteral("org.plim.BluezSimulator1.Phone");
    const QString m_rx;
    const QString m_tx;
    QString m_path;
    QString m_method;
    int m_writesAtOnce = 1;
    int m_open = 0;
    StreamPattern m_received;
    qint64 m_sent = 0;
    qint64 m_left = 0;
    int m_rejections = 0;
};

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
    /** From now on it reads at once, or else only half a buffer when the buffer is full. */
    void setSlow(bool isSlow)
    {
        QObject::disconnect(m_reads);
        m_reads = isSlow ? QObject::connect(&m_stream, &Stream::rejected, &m_context,
                                            [this] { read(m_stream.readBufferSize() / 2); })
                         : QObject::connect(&m_stream, &Stream::readyRead, &m_context,
                                            [this] { read(m_stream.bytesAvailable()); });
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

/** A program that reads slowly: the phone is told that the buffer is full, and tries again. */
void runSlowReader(const Simulator& daemon, Device& device, Phone& phone, qint64 bytes)
{
    begin(device, phone, 1, true);
    device.setSlow(true);
    device.send(0);
    const int before = phone.rejections();
    phone.send(bytes);
    waitUntil(QStringLiteral("the phone has written everything"),
              [&] { return phone.sent() == bytes && phone.isIdle(); });
    device.read(bytes);
    expectWhole("at the slow reader", device.received(), bytes);
    std::printf("%lld bytes to a slow reader, %d writes rejected and tried again\n", bytes,
                phone.rejections() - before);
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

int run(qint64 bytes, int links, unsigned seed)
{
    Simulator daemon;
    plim::StreamService service;
    service.rxAccess = Access().write();
    Device device(service);
    waitUntil(QStringLiteral("the application is registered"),
              [&] { return !daemon.applications().isEmpty(); });
    Phone phone(device.stream().rx()->dbusPath(), device.stream().tx()->dbusPath());
    runBothWays(daemon, device, phone, megabyte); // from here on, nothing grows
    const Figures first = Figures::now();
    runBothWays(daemon, device, phone, bytes);
    runSlowReader(daemon, device, phone, std::min(bytes, 4 * megabyte));
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
    QCommandLineParser arguments;
    arguments.setApplicationDescription(
        QStringLiteral("Sends bytes through a serial stream, and checks each."));
    arguments.addHelpOption();
    const QCommandLineOption size(QStringLiteral("megabytes"), QStringLiteral("How many each way."),
                                  QStringLiteral("count"), QStringLiteral("100"));
    const QCommandLineOption links(QStringLiteral("links"), QStringLiteral("How many links are lost."),
                                   QStringLiteral("count"), QStringLiteral("100"));
    const QCommandLineOption seed(QStringLiteral("seed"), QStringLiteral("Determines when links are lost."),
                                  QStringLiteral("number"), QStringLiteral("7"));
    arguments.addOptions({size, links, seed});
    arguments.process(program);
    followObjects();
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    return run(arguments.value(size).toLongLong() * megabyte, arguments.value(links).toInt(),
               arguments.value(seed).toUInt());
}

#include "main.moc"
