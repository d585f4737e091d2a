// A serial stream, and the console that is built on it.

#include "AttClient.h"
#include "Bluetooth.h"
#include "Child.h"
#include "Expect.h"
#include "ProductStage.h"
#include "Remote.h"
#include "StreamPattern.h"
#include "scenes.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRegularExpression>

namespace {

const QString rx = QStringLiteral("6e400002-b5a3-f393-e0a9-e50e24dcca9e");
const QString tx = QStringLiteral("6e400003-b5a3-f393-e0a9-e50e24dcca9e");

constexpr int kilobytes = 128 << 10; // takes less than a minute
constexpr int megabyte = 1 << 20;
constexpr int longestWrite = 510;   // of 5.66
constexpr int patienceSeconds = 60; // without a further byte

/** The bytes of the notifications that came so far. */
QByteArray received(const AttClient& phone)
{
    QByteArray bytes;
    for (const AttClient::Notification& notification : phone.notifications()) {
        bytes += notification.value;
    }
    return bytes;
}

int receivedSize(const AttClient& phone)
{
    int size = 0;
    for (const AttClient::Notification& notification : phone.notifications()) {
        size += int(notification.value.size());
    }
    return size;
}

/** What the peripheral says of its stream: bytes received, where wrong, left to send, rejected. */
QStringList state(Peripheral& peripheral)
{
    peripheral.tell("stream-state serial");
    return peripheral.told("stream serial state")
        .value(peripheral.told("stream serial state").size() - 1)
        .split(' ');
}

void noteSpeed(const QString& what, qint64 bytes, const QElapsedTimer& time)
{
    const double seconds = double(time.elapsed()) / 1000;
    Expect::note(QString("%1: %2 bytes in %3 s, %4 kB/s")
                     .arg(what)
                     .arg(bytes)
                     .arg(seconds, 0, 'f', 1)
                     .arg(double(bytes) / 1000 / seconds, 0, 'f', 1));
}

/** Waits until there are so many bytes, or there is no progress any more. */
void awaitBytes(const std::function<qint64()>& count, qint64 bytes)
{
    for (qint64 before = -1, now = count(); now < bytes && now > before; now = count()) {
        before = now;
        Expect::waitFor([&] { return count() > before; }, patienceSeconds);
    }
}

void sendToPhone(ProductStage& stage, int bytes)
{
    const int before = receivedSize(stage.central);
    QElapsedTimer time;
    time.start();
    stage.peripheral.tell(QString("stream-send serial %1").arg(bytes));
    awaitBytes([&] { return receivedSize(stage.central); }, before + bytes);
    noteSpeed("to the phone", bytes, time);
    Expect::that(received(stage.central).mid(before) == StreamPattern::bytes(0, bytes),
                 "all bytes arrive at the phone, in order, once",
                 QString("%1 arrived").arg(receivedSize(stage.central) - before));
}

void sendFromPhone(ProductStage& stage, int bytes)
{
    const quint16 handle = stage.central.handle(rx);
    QElapsedTimer time;
    time.start();
    QStringList errors;
    for (int at = 0; at < bytes; at += longestWrite) {
        const QByteArray part = StreamPattern::bytes(at, qMin(longestWrite, bytes - at));
        if (const int error = stage.central.write(handle, part).error) {
            errors << QString("0x%1 at %2").arg(error, 2, 16, QLatin1Char('0')).arg(at);
        }
    }
    Expect::that(errors.isEmpty(), "no write is rejected",
                 QString("%1, the first is %2").arg(errors.size()).arg(errors.value(0)));
    awaitBytes([&] { return state(stage.peripheral).value(0).toLongLong(); }, bytes);
    noteSpeed("from the phone", bytes, time);
    const QStringList all{QString::number(bytes), "-1", "0"};
    Expect::equal(state(stage.peripheral).mid(0, 3), all, "all bytes arrive at the stream, in order, once");
}

void runStream(ProductStage& stage, int bytes)
{
    AttClient& phone = stage.central;
    Expect::equal(phone.subscribe(phone.handle(tx), 1).error, 0, "the phone subscribes");
    Expect::eventually(
        [&] { return stage.peripheral.told("stream serial connected") == QStringList{stage.centralPath()}; },
        "the stream opens for it");
    sendToPhone(stage, bytes);
    sendFromPhone(stage, bytes);

    stage.peripheral.tell(QString("stream-send serial %1").arg(megabyte));
    const int before = receivedSize(phone);
    Expect::require([&] { return receivedSize(phone) > before; }, "the first bytes of another megabyte");
    phone.disconnectDevice();
    Expect::eventually([&] { return stage.peripheral.told("stream serial disconnected").size() == 1; },
                       "the link is lost in the middle, and the stream ends");
    const QStringList end = stage.peripheral.told("stream serial disconnected").value(0).split(' ');
    Expect::that(end.value(1).toLongLong() > 0, "it tells that bytes were not sent", end.join(' '));
    Expect::note(end.value(1) + " bytes were not sent");
    phone.connectDevice();
    Expect::equal(phone.subscribe(phone.handle(tx), 1).error, 0, "the phone subscribes again");
    Expect::eventually([&] { return stage.peripheral.told("stream serial connected").size() == 2; },
                       "the stream opens again");
    sendToPhone(stage, 16384);
    sendFromPhone(stage, 16384);
}

/** The program does not read: the phone is told when the socket is full, and nothing is lost. */
void holdPhoneUp(ProductStage& stage)
{
    constexpr int most = 2000;
    const quint16 handle = stage.central.handle(rx);
    const qint64 before = state(stage.peripheral).value(0).toLongLong();
    stage.peripheral.tell("stream-hold serial on");
    qint64 sent = before;
    int error = 0;
    for (int i = 0; i < most && error == 0; ++i) {
        error = stage.central.write(handle, StreamPattern::bytes(sent, longestWrite)).error;
        sent += error == 0 ? longestWrite : 0;
    }
    Expect::equal(error, 0x0e, "a program that does not read: the phone gets 0x0e when the socket is full");
    Expect::note(QString("after %1 bytes").arg(sent - before));
    stage.peripheral.tell("stream-hold serial off");
    const QStringList all{QString::number(sent), "-1", "0", "0"};
    Expect::eventually([&] { return state(stage.peripheral) == all; },
                       "what was accepted arrives, in order, once",
                       [&] { return state(stage.peripheral).join(' '); });
}

} // namespace

void Scenes::console()
{
    Bluetooth bluetooth(QByteArray(), Bluetooth::LowEnergy);
    const QString phonePath = devicePath(bluetooth.device(), bluetooth.phoneAddress());
    const Child example("example", "stdbuf",
                        {"-oL", QCoreApplication::applicationDirPath() + "/example-11-serial-console"});
    AttClient phone(bluetooth.phoneAddress(), bluetooth.deviceAddress());
    phone.connectDevice();
    const quint16 keyboard = phone.handle(rx);
    QByteArray expected;
    const auto expectScreen = [&](const QByteArray& line, const QString& what) {
        expected += line;
        Expect::eventually([&] { return received(phone) == expected; }, what,
                           [&] { return QString::fromUtf8(received(phone)); });
    };
    Expect::equal(phone.subscribe(phone.handle(tx), 1).error, 0, "the phone opens the console");
    expectScreen("welcome, type help\n", "which greets it");
    Expect::eventually([&] { return example.wrote("a phone: " + phonePath); }, "the example says who it is");
    Expect::equal(phone.write(keyboard, "help\r\n").error, 0, "the phone asks for help");
    expectScreen("help, uptime, led on|off, echo TEXT\n", "and gets it");
    phone.command(keyboard, "led ");
    phone.command(keyboard, "on\n");
    expectScreen("ok\n", "a line in two parts, written without response, is answered");
    Expect::eventually([&] { return example.wrote("led on"); }, "and carried out");
    const QByteArray text(200, 'x');
    Expect::equal(phone.write(keyboard, "echo " + text + "\necho end\n").error, 0,
                  "the phone sends two lines");
    expectScreen(text + "\nend\n", "both are answered");
    phone.disconnectDevice();
    Expect::eventually(
        [&] { return example.wrote("the phone has gone, 0 bytes not sent, 0 bytes not read"); },
        "the example hears that the phone has gone");
    Expect::that(!example.wrote("ERROR"), "no error is logged", example.text());
}

void Scenes::stream()
{
    ProductStage stage({"stream serial"});
    stage.central.connectDevice();
    runStream(stage, kilobytes);
    const QString traffic = stage.bluetooth.traffic();
    Expect::that(traffic.contains("\tAcquireNotify\n"), "the daemon has asked for a socket");
    static const QRegularExpression notification("/6e400003_[^\t]*\t[^\t]*\tPropertiesChanged\n");
    Expect::that(!traffic.contains(notification), "no value of TX went over the bus");
}

void Scenes::streamHeld()
{
    ProductStage stage({"stream serial both-ways"});
    AttClient& phone = stage.central;
    phone.connectDevice();
    Expect::equal(phone.subscribe(phone.handle(tx), 1).error, 0, "the phone subscribes");
    // The daemon keeps no copy of the first write. An answer to one of its own questions would take its
    // place.
    Expect::require(
        [&] {
            return Remote::properties(stage.centralPath(), Remote::deviceInterface)
                .value("ServicesResolved")
                .toBool();
        },
        "the daemon to have no more questions about the phone's services");
    sendFromPhone(stage, kilobytes / 4);
    if (version() != "5.66") { // where one socket would serve all centrals, so that writes take the bus
        holdPhoneUp(stage);
    }
}

void Scenes::streamMegabyte()
{
    ProductStage stage({"stream serial"});
    stage.central.connectDevice();
    runStream(stage, megabyte);
}

void Scenes::streamOverBus()
{
    ProductStage stage({"stream serial bus acknowledged"});
    stage.central.connectDevice();
    Expect::equal(stage.central.write(stage.central.handle(rx), "early").error, 0x82,
                  "a write before the subscription gets 0x82");
    runStream(stage, megabyte);
}
