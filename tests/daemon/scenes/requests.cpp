// Requests that are answered late, never, or with a refusal.

#include "Expect.h"
#include "Phone.h"
#include "ProductStage.h"
#include "SceneTree.h"
#include "scenes.h"

#include <QDBusConnection>
#include <QDBusPendingCall>
#include <QElapsedTimer>

#include <algorithm>

namespace {

const QString service = SceneTree::uuid(0x6000);
const QString slow = SceneTree::uuid(0x6001);
const QString silent = SceneTree::uuid(0x6002);
const QString guarded = SceneTree::uuid(0x6003);
const QString told = SceneTree::uuid(0x6004);
const QString commanded = SceneTree::uuid(0x6005);
const QString readable = SceneTree::uuid(0x6006);
const QString notifying = SceneTree::uuid(0x6007);
const QString longValue = SceneTree::uuid(0x6008);

QStringList application()
{
    return {
        "plim-service service " + service + " primary",
        "plim-characteristic slow service " + slow + " read,write",
        "reads slow accept 6c617465 3000",
        "writes slow accept - 1000",
        "plim-characteristic silent service " + silent + " read",
        "reads silent keep -",
        "plim-characteristic guarded service " + guarded + " read,write",
        "value guarded 6f6c64",
        "writes guarded reject 80",
        "plim-characteristic told service " + told + " read,write,notify",
        "writes told accept",
        "plim-characteristic commanded service " + commanded + " read,write-without-response",
        "value commanded 6f6c64",
        "writes commanded accept",
        "plim-characteristic readable service " + readable + " read",
        "value readable 68656c6c6f",
        "plim-characteristic notifying service " + notifying + " notify",
    };
}

double secondsOf(const std::function<void()>& action)
{
    QElapsedTimer timer;
    timer.start();
    action();
    return double(timer.elapsed()) / 1000;
}

/** Not more than that, and less than the 30 s after which a phone ends the link: busy machines are slow. */
void expectSeconds(double seconds, double least, const QString& what)
{
    Expect::that(seconds >= least && seconds < 30, what, QString::number(seconds) + " s");
}

void answerLate(AttClient& central)
{
    AttClient::Answer answer;
    double seconds = secondsOf([&] { answer = central.read(central.handle(slow)); });
    Expect::equal(answer.value, QByteArray("late"), "a read answered after 3 s");
    expectSeconds(seconds, 2.8, "it took that long");
    seconds = secondsOf([&] { answer = central.write(central.handle(slow), "new"); });
    Expect::equal(answer.error, 0, "a write answered after 1 s");
    expectSeconds(seconds, 0.9, "it took that long");

    seconds = secondsOf([&] { answer = central.read(central.handle(silent)); });
    Expect::equal(answer.error, 0x0e, "a read that is never answered fails with 0x0e");
    expectSeconds(seconds, 4.8, "after 5 s");
    Expect::equal(central.read(central.handle(readable)).value, QByteArray("hello"), "the link still works");
}

void refuseWrites(ProductStage& stage)
{
    AttClient& central = stage.central;
    Expect::equal(central.write(central.handle(guarded), "new").error, 0x80, "a write is refused with 0x80");
    Expect::equal(central.read(central.handle(guarded)).value, QByteArray("old"), "the value is unchanged");
    Expect::equal(stage.peripheral.told("request guarded"),
                  QStringList{"write " + stage.centralPath() + " 0 6e6577"},
                  "the handler was told who writes what");
    Expect::equal(stage.peripheral.told("written guarded"), QStringList(), "and the program of no new value");
}

void notifyWriter(ProductStage& stage)
{
    AttClient& central = stage.central;
    const quint16 handle = central.handle(told);
    const auto values = [&] {
        QStringList all;
        for (const AttClient::Notification& notification : central.notifications()) {
            all << QString::fromLatin1(notification.value);
        }
        return all;
    };
    Expect::equal(central.subscribe(handle, 1).error, 0, "the writer is subscribed");
    Expect::equal(central.write(handle, "one").error, 0, "an accepted write");
    Expect::equal(central.read(handle).value, QByteArray("one"), "it is stored");
    Expect::equal(values(), QStringList(), "and not notified");
    Expect::require([&] { return !stage.peripheral.notifying("told").isEmpty(); }, "the subscription");
    stage.peripheral.tell("writes told notify");
    Expect::equal(central.write(handle, "two").error, 0, "one that is accepted with a notification");
    Expect::eventually([&] { return values() == QStringList{"two"}; }, "is notified",
                       [&] { return values().join(','); });
}

void writeSilently(ProductStage& stage)
{
    AttClient& central = stage.central;
    Peripheral& peripheral = stage.peripheral;
    const quint16 handle = central.handle(commanded);
    central.command(handle, "new");
    Expect::eventually([&] { return peripheral.told("written commanded") == QStringList{"6e6577"}; },
                       "a write without an answer arrives");
    Expect::equal(central.read(handle).value, QByteArray("new"), "and is read back");
    peripheral.tell("writes commanded reject 80");
    central.command(handle, "bad");
    Expect::eventually([&] { return peripheral.told("request commanded").size() == 2; },
                       "a second one is refused by its handler");
    Expect::equal(central.read(handle).value, QByteArray("new"), "the value is unchanged");

    central.command(central.handle(readable), "bad");
    Expect::equal(central.read(central.handle(readable)).value, QByteArray("hello"),
                  "a write without an answer to what is only readable is dropped");
    Expect::equal(central.write(central.handle(readable), "bad").error, 0x03, "one with an answer gets 0x03");
    Expect::equal(central.read(central.handle(notifying)).error, 0x02,
                  "a read of what only notifies gets 0x02");
    Expect::equal(central.write(central.handle(notifying), "bad").error, 0x03, "a write gets 0x03");
    Expect::equal(peripheral.count(" refused: "), 2,
                  "BlueZ passes on what only notifies, and refuses to write what is only readable");

    const auto before = peripheral.told("request guarded").size();
    central.command(central.handle(guarded), "bad");
    Expect::eventually([&] { return peripheral.told("request guarded").size() == before + 1; },
                       "BlueZ passes a write without an answer on where only those with one are allowed");
}

} // namespace

void Scenes::requests()
{
    ProductStage stage(application());
    stage.central.connectDevice();
    refuseWrites(stage);
    notifyWriter(stage);
    writeSilently(stage);
    answerLate(stage.central);
    stage.expectWitness();
}

void Scenes::pending()
{
    constexpr int count = 50;
    const auto uuid = [](int number) { return SceneTree::uuid(0x6100 + number); };
    QStringList commands{"plim-service service " + service + " primary"};
    for (int number = 0; number < count; ++number) {
        const QString name = "value" + QString::number(number);
        commands << "plim-characteristic " + name + " service " + uuid(number) + " read"
                 << "reads " + name + " accept " + QString("%1").arg(number, 2, 16, QLatin1Char('0')) +
                        " 200";
    }
    ProductStage stage(commands);
    Phone phone(stage.bluetooth.phone(), stage.bluetooth.deviceAddress());
    phone.meet();

    QStringList uuids;
    for (int number = 0; number < count; ++number) {
        uuids << uuid(number);
    }
    const QList<QDBusPendingCall> calls = phone.beginReads(uuids);
    Expect::eventually(
        [&] {
            return std::all_of(calls.cbegin(), calls.cend(),
                               [](const QDBusPendingCall& call) { return call.isFinished(); });
        },
        "50 reads that the phone's program begins at once are answered", {}, 180);
    QStringList wrong;
    for (int number = 0; number < count; ++number) {
        if (calls.at(number).reply().arguments().value(0).toByteArray() != QByteArray(1, char(number))) {
            wrong << QString::number(number) + ": " + calls.at(number).error().message();
        }
    }
    Expect::equal(wrong, QStringList(), "each with its own value");

    stage.peripheral.settle();
    int pending = 0;
    int most = 0;
    for (const QString& line : stage.peripheral.lines()) {
        pending += line.startsWith("request ") ? 1 : line.startsWith("answered ") ? -1 : 0;
        most = std::max(most, pending);
    }
    // One for each channel of the link; 5.66 opens three.
    Expect::equal(most, version() == "5.66" ? 3 : 1,
                  "as many at a time reach the peripheral: " + QString::number(most));
}
