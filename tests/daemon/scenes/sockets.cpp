// Notifications, confirmations and writes through sockets.

#include "Agent.h"
#include "Expect.h"
#include "ProductStage.h"
#include "Remote.h"
#include "SceneTree.h"
#include "scenes.h"

#include <QtEndian>

namespace {

const QString data = SceneTree::uuid(0x9001);
const QString alarm = SceneTree::uuid(0x9002);
const QString input = SceneTree::uuid(0x9003);

/** 5.66 has one socket for all centrals, and sends confirmations over the bus. */
bool sharesSockets()
{
    return Scenes::version() == "5.66";
}

/** How many messages for or of the application have this member. */
int messages(const ProductStage& stage, const QString& member)
{
    int count = 0;
    for (const QString& line : stage.bluetooth.traffic().split('\n')) {
        count += line.contains("/com/example/scene/") && line.endsWith('\t' + member) ? 1 : 0;
    }
    return count;
}

QList<QByteArray> notified(const AttClient& central, qsizetype from)
{
    QList<QByteArray> values;
    for (const AttClient::Notification& notification : central.notifications().mid(int(from))) {
        values << notification.value;
    }
    return values;
}

/** Whether they are the numbers from 0, each once and in order. */
bool areNumbers(const QList<QByteArray>& values, int count)
{
    for (int i = 0; i < values.size(); ++i) {
        if (values.at(i).size() < 4 || qFromBigEndian<quint32>(values.at(i).constData()) != quint32(i)) {
            return false;
        }
    }
    return values.size() == count;
}

void subscribe(ProductStage& stage)
{
    const int times = int(stage.peripheral.told("subscribed data").size());
    Expect::equal(stage.central.subscribe(stage.central.handle(data), 1).error, 0, "the central subscribes");
    Expect::eventually([&] { return stage.peripheral.told("subscribed data").size() == times + 1; },
                       "which reaches subscribed()");
}

void count(ProductStage& stage, int values, int bytes)
{
    const auto before = stage.central.notifications().size();
    stage.peripheral.tell(QString("notify-count data %1 %2").arg(values).arg(bytes));
    Expect::eventually(
        [&] { return stage.central.notifications().size() >= before + values; },
        QString("%1 values of %2 bytes arrive").arg(values).arg(bytes + 4),
        [&] { return QString("%1 arrived").arg(stage.central.notifications().size() - before); }, 120);
    Expect::that(areNumbers(notified(stage.central, before), values), "once and in order");
    Expect::note("it had to wait for room " + stage.peripheral.told("counted data").value(0) + " times");
}

void notifyValues(ProductStage& stage)
{
    Peripheral& peripheral = stage.peripheral;
    AttClient& central = stage.central;
    subscribe(stage);
    Expect::equal(peripheral.told("subscribed data"), QStringList{stage.centralPath()}, "with its name");
    Expect::eventually([&] { return peripheral.notifying("data") == QStringList{"1"}; },
                       "and notifyStateChanged()");
    count(stage, 100, 0);
    count(stage, 2000, 240);
    Expect::equal(messages(stage, "PropertiesChanged"), 0, "none of them goes over the bus");
    Expect::equal(messages(stage, "StartNotify"), 0, "and StartNotify was not called");

    const auto before = central.notifications().size();
    peripheral.tell({"notify data 01", "notify data -", "notify data 02"});
    Expect::eventually([&] { return central.notifications().size() == before + 3; },
                       "an empty value between two others arrives",
                       [&] { return QString("%1 arrived").arg(central.notifications().size() - before); });
    Expect::note("their order: " +
                 Expect::text(QStringList{QString::fromLatin1(notified(central, before).value(0).toHex()),
                                          QString::fromLatin1(notified(central, before).value(1).toHex()),
                                          QString::fromLatin1(notified(central, before).value(2).toHex())}));
    Expect::equal(messages(stage, "PropertiesChanged"), 1, "the empty one went over the bus");
}

QStringList writes(const QString& central, const QList<QByteArray>& values)
{
    QStringList lines;
    for (const QByteArray& value : values) {
        lines << "write " + central + " 0 " + value.toHex();
    }
    return lines;
}

void writeValues(ProductStage& stage)
{
    Peripheral& peripheral = stage.peripheral;
    AttClient& central = stage.central;
    const QList<QByteArray> values{"one", "", QByteArray(200, 'x'), "two"};
    const auto burst = [&](const QString& characteristic) {
        for (const QByteArray& value : values) {
            central.command(central.handle(characteristic), value);
        }
    };
    burst(data);
    Expect::eventually([&] { return peripheral.told("request data").size() == 4; },
                       "four writes without a response arrive at once");
    Expect::equal(peripheral.told("request data"), writes(stage.centralPath(), values),
                  "over the bus, as sent");

    const QString writer = sharesSockets() ? QString() : stage.centralPath();
    const int onBus = messages(stage, "WriteValue");
    burst(input);
    Expect::eventually([&] { return peripheral.told("request input").size() == 4; },
                       "four arrive where writes have a socket, too");
    const bool isGarbled = peripheral.told("request input") != writes(writer, values);
    Expect::note(isGarbled ? "but the daemon has garbled them while it waited for the socket" : "as sent");
    burst(input);
    Expect::equal(central.write(central.handle(input), "three").error, 0, "a write with a response succeeds");
    Expect::equal(central.writePrepared(central.handle(input), QByteArray(250, 'y')).error, 0,
                  "so does a long one");
    Expect::eventually([&] { return peripheral.told("request input").size() == 10; }, "all arrive");
    Expect::equal(QStringList(peripheral.told("request input").mid(4)),
                  writes(writer, values + QList<QByteArray>{"three", QByteArray(250, 'y')}),
                  "as sent, with their central from 5.69 on");
    Expect::equal(messages(stage, "WriteValue"), onBus, "through the socket");
    Expect::equal(messages(stage, "AcquireWrite"), 1, "for which the daemon asked once");
}

void indicate(ProductStage& stage)
{
    Peripheral& peripheral = stage.peripheral;
    AttClient& central = stage.central;
    Expect::equal(central.subscribe(central.handle(alarm), 2).error, 0, "the central wants indications");
    Expect::eventually([&] { return peripheral.told("subscribed alarm").size() == 1; }, "and is subscribed");
    const auto before = central.notifications().size();
    const auto confirmations = [&] { return int(peripheral.told("confirmed alarm").size()); };
    peripheral.tell("notify alarm 01");
    Expect::eventually([&] { return confirmations() == 1; }, "a confirmation reaches confirmed()");
    Expect::that(central.notifications().last().isIndication, "of an indication");
    peripheral.tell({"notify alarm 02", "notify alarm 03"});
    Expect::eventually([&] { return central.notifications().size() == before + 3; },
                       "two more are indicated, one after the other");
    Expect::eventually([&] { return confirmations() >= 2; }, "and confirmed");
    Expect::waitFor([&] { return confirmations() == 3; }, 3);
    Expect::note(QString("of their 2 confirmations the daemon has told %1").arg(confirmations() - 1));
    Expect::eventually([&] { return messages(stage, "Confirm") == (sharesSockets() ? confirmations() : 0); },
                       "over the bus with 5.66, through the socket with 5.82");
}

void endSubscriptions(ProductStage& stage)
{
    Peripheral& peripheral = stage.peripheral;
    AttClient& central = stage.central;
    central.subscribe(central.handle(data), 0);
    Expect::eventually([&] { return peripheral.told("unsubscribed data").size() == 1; },
                       "unsubscribing reaches unsubscribed()");
    Expect::eventually([&] { return peripheral.notifying("data").last() == "0"; },
                       "and notifyStateChanged()");
    Expect::equal(messages(stage, "StopNotify"), 0, "without a StopNotify");
    subscribe(stage);
    central.disconnectDevice();
    Expect::eventually([&] { return peripheral.told("unsubscribed data").size() == 2; },
                       "the end of the link ends the subscription of a central that is not bonded");
    central.connectDevice();
    subscribe(stage);
    count(stage, 10, 0);
    const int registered = peripheral.succeeded("registerApp");
    peripheral.tell("plim-characteristic more service " + SceneTree::uuid(0x9004) + " read");
    peripheral.awaitRegistration({"registerApp"}, registered + 1);
    Expect::eventually([&] { return peripheral.told("unsubscribed data").size() == 3; },
                       "a new registration ends it, too");
    central.discover();
}

void comeBack(ProductStage& stage)
{
    Peripheral& peripheral = stage.peripheral;
    const Agent agent("NoInputNoOutput");
    stage.central.protect(AttClient::Encrypted);
    Expect::require(
        [&] {
            return Remote::properties(stage.centralPath(), Remote::deviceInterface).value("Bonded").toBool();
        },
        "the bond");
    subscribe(stage);
    count(stage, 10, 0);
    const auto ended = peripheral.told("unsubscribed data").size();
    const int onBus = messages(stage, "PropertiesChanged");
    stage.central.disconnectDevice();
    // The daemon, which plays the bonded phone, too, holds the link.
    Remote::tryCall(devicePath(stage.bluetooth.phone(), stage.bluetooth.deviceAddress()),
                    Remote::deviceInterface, "Disconnect");
    Expect::require(
        [&] {
            return !Remote::properties(stage.centralPath(), Remote::deviceInterface)
                        .value("Connected")
                        .toBool();
        },
        "the end of the link");
    Expect::waitFor([&] { return peripheral.told("unsubscribed data").size() > ended; },
                    sharesSockets() ? 5 : 60);
    Expect::equal(int(peripheral.told("unsubscribed data").size() - ended), sharesSockets() ? 0 : 1,
                  "a bonded central leaves: its socket stays with 5.66, and is closed with 5.82");
    const auto before = stage.central.notifications().size();
    const auto subscribedBefore = peripheral.told("subscribed data").size();
    peripheral.tell("notify data 0a");
    stage.central.connectDevice();
    if (!sharesSockets()) {
        Expect::eventually([&] { return peripheral.told("subscribed data").size() > subscribedBefore; },
                           "it is back, and subscribed without having asked");
        Expect::equal(peripheral.told("subscribed data").last(), stage.centralPath(), "under its name");
    }
    Expect::note(QString("it has got %1 of the values that were set while it was away")
                     .arg(stage.central.notifications().size() - before));
    count(stage, 10, 0);
    Expect::equal(messages(stage, "PropertiesChanged") - onBus, sharesSockets() ? 0 : 10,
                  "through the old socket with 5.66, over the bus with 5.82");
}

} // namespace

void Scenes::sockets()
{
    // On further channels, the daemon would send to its own central, which plays the bonded phone, too.
    const QByteArray oneChannel = "[GATT]\nChannels = 1\n";
    const QStringList commands{
        "plim-service service " + SceneTree::uuid(0x9000) + " primary",
        "plim-characteristic data service " + data + " read,write,write-without-response,notify",
        "sockets data",
        "writes data accept",
        "plim-characteristic alarm service " + alarm + " read,indicate",
        "sockets alarm",
        "plim-characteristic input service " + input + " write,write-without-response",
        "sockets input both-ways",
        "writes input accept",
    };
    ProductStage stage(commands, oneChannel);
    stage.central.connectDevice();
    notifyValues(stage);
    writeValues(stage);
    indicate(stage);
    endSubscriptions(stage);
    comeBack(stage);
}
