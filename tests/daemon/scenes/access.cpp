// Protected attributes, and pairing.

#include "Agent.h"
#include "Expect.h"
#include "ProductStage.h"
#include "Remote.h"
#include "SceneTree.h"
#include "scenes.h"

#include <QtEndian>

#include <sys/socket.h>
#include <unistd.h>

namespace {

const QStringList levels{"open", "encrypted", "authenticated", "secure"};

QString uuid(int level)
{
    return SceneTree::uuid(0x7001 + level);
}

QString descriptorUuid(int level)
{
    return SceneTree::uuid(0x7011 + level);
}

/** One characteristic and one descriptor of each level. */
QStringList application()
{
    QStringList commands{"plim-service service " + SceneTree::uuid(0x7000) + " primary"};
    for (int level = 0; level < levels.size(); ++level) {
        const QString& name = levels.at(level);
        const QString suffix = level == 0 ? QString() : ':' + name;
        commands << QString("plim-characteristic %1 service %2 read%3,write%3,indicate%3")
                        .arg(name, uuid(level), suffix)
                 << "track " + name
                 << (name == "encrypted" ? "callback encrypted 01" : "value " + name + " 01")
                 << QString("plim-descriptor %1-descriptor %1 %2 read%3,write%3")
                        .arg(name, descriptorUuid(level), suffix);
    }
    return commands;
}

/** What the central gets of each level's attributes, for example "encrypted read 0x0f write 0x0f ...". */
QStringList tryEverything(AttClient& central)
{
    QStringList lines;
    const auto hex = [](const AttClient::Answer& answer) {
        return answer.error == 0 ? QString("ok") : QString("0x%1").arg(answer.error, 2, 16, QLatin1Char('0'));
    };
    for (int level = 0; level < levels.size(); ++level) {
        const quint16 value = central.handle(uuid(level));
        const quint16 descriptor = central.handle(descriptorUuid(level));
        lines << QStringList{levels.at(level),
                             "read",
                             hex(central.read(value)),
                             "write",
                             hex(central.write(value, "x")),
                             "prepared",
                             hex(central.writePrepared(value, QByteArray(150, 'x'))),
                             "subscribe",
                             hex(central.subscribe(value, 2)),
                             "descriptor",
                             hex(central.read(descriptor)),
                             hex(central.write(descriptor, "x"))}
                     .join(' ');
    }
    return lines;
}

QStringList expected(const QStringList& answers)
{
    QStringList lines;
    for (int level = 0; level < levels.size(); ++level) {
        lines << QString("%1 read %2 write %2 prepared %2 subscribe %2 descriptor %2 %2")
                     .arg(levels.at(level), answers.at(level));
    }
    return lines;
}

void expectAnswers(AttClient& central, const QStringList& answers, const QString& when)
{
    const QStringList seen = tryEverything(central);
    const QStringList wanted = expected(answers);
    for (int level = 0; level < levels.size(); ++level) {
        Expect::equal(seen.at(level), wanted.at(level), when + ": " + seen.at(level));
    }
}

/** Switches LE Secure Connections of a controller on or off, as an older phone is without them. */
void setSecureConnections(const QString& adapter, bool on)
{
    // The kernel's management interface, which none of its installed headers declares.
    constexpr int protocolHci = 1;
    struct
    {
        sa_family_t family;
        quint16 device;
        quint16 channel;
    } const address{AF_BLUETOOTH, 0xffff, 3};
    struct
    {
        quint16 opcode;
        quint16 index;
        quint16 size;
        quint8 value;
    } __attribute__((packed))
    const command{qToLittleEndian<quint16>(0x002d), qToLittleEndian(adapter.section("hci", 1).toUShort()),
                  qToLittleEndian<quint16>(1), quint8(on ? 1 : 0)};
    const int socket = ::socket(AF_BLUETOOTH, SOCK_RAW | SOCK_CLOEXEC, protocolHci);
    const bool sent = ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
                      ::write(socket, &command, sizeof command) == ssize_t(sizeof command);
    ::close(socket);
    if (!sent) {
        throw Expect::Impossible{"the kernel does not switch Secure Connections"};
    }
}

void pair(ProductStage& stage, AttClient::Security security, const Agent& agent, const QString& question)
{
    stage.central.protect(security);
    Expect::require(
        [&] {
            return Remote::properties(stage.centralPath(), Remote::deviceInterface).value("Paired").toBool();
        },
        "the pairing");
    Expect::that(agent.asked().contains(question + ' ' + stage.centralPath()),
                 "the peripheral's agent is asked: " + question, agent.asked().join(", "));
}

/** A new registration takes the paired central's subscriptions away, and nobody tells it. */
void loseSubscription(ProductStage& stage)
{
    Peripheral& peripheral = stage.peripheral;
    const auto subscribers = [&] {
        peripheral.tell("subscribers secure");
        return peripheral.told("subscribers secure").last();
    };
    Expect::equal(subscribers(), stage.centralPath(), "the paired central is subscribed");
    const int registered = peripheral.succeeded("registerApp");
    const auto notified = stage.central.notifications().size();
    peripheral.tell("plim-characteristic more service " + SceneTree::uuid(0x7020) + " read");
    peripheral.awaitRegistration({"registerApp"}, registered + 1);
    Expect::equal(subscribers(), QString(), "registered anew nobody is, as subscribers() knows");
    stage.central.discover();
    const quint16 value = stage.central.handle(uuid(3));
    Expect::equal(stage.central.read(stage.central.next(value, longUuid(0x2902))).value, QByteArray(2, 0),
                  "and as the phone reads in the configuration");
    peripheral.tell("value secure 02");
    Expect::equal(stage.central.read(value).value, QByteArray(1, 2), "a value set now");
    Expect::equal(stage.central.notifications().mid(notified).size(), 0, "is not indicated");
}

} // namespace

void Scenes::access()
{
    ProductStage stage(application());
    AttClient& central = stage.central;
    central.connectDevice();
    expectAnswers(central, {"ok", "0x0f", "0x05", "0x05"}, "not paired");
    stage.peripheral.settle();
    Expect::equal(stage.peripheral.asked("encrypted") + stage.peripheral.written("encrypted").size(), 0,
                  "the program is not asked where the phone gets an error");
    {
        const Agent agent("NoInputNoOutput");
        pair(stage, AttClient::Encrypted, agent, "RequestAuthorization");
        expectAnswers(central, {"ok", "ok", "0x05", "0x05"}, "paired without a comparison");
        stage.peripheral.settle();
        Expect::equal(stage.peripheral.asked("encrypted"), 1, "it is asked where the phone gets an answer");
    }
    // A link keeps the capability with which it began.
    const Agent agent("KeyboardDisplay");
    setSecureConnections(stage.bluetooth.phone(), false);
    stage.forgetEachOther();
    expectAnswers(central, {"ok", "0x0f", "0x05", "0x05"}, "forgotten");
    pair(stage, AttClient::Authenticated, agent, "RequestPasskey");
    expectAnswers(central, {"ok", "ok", "ok", "0x05"}, "paired with a passkey, without Secure Connections");
    setSecureConnections(stage.bluetooth.phone(), true);
    stage.forgetEachOther();
    pair(stage, AttClient::Authenticated, agent, "RequestConfirmation");
    expectAnswers(central, {"ok", "ok", "ok", "ok"}, "paired with a comparison");
    loseSubscription(stage);
    stage.expectWitness();
}
