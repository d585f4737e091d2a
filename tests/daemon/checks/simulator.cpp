// The checks with the stand-in daemon, on a private bus.

#include "Simulator.h"
#include "CheckEnvironment.h"
#include "Child.h"
#include "Expect.h"
#include "Peripheral.h"

#include <QByteArrayList>
#include <QCoreApplication>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusReply>
#include <QTemporaryDir>

namespace {

class SimulatedEnvironment : public CheckEnvironment
{
public:
    explicit SimulatedEnvironment(const QString& version)
        : m_version(version), m_simulator({"--bluez", version})
    {
    }

    QString version() const override { return m_version; }
    QString adapter() const override { return "/org/bluez/hci0"; }
    int advertisingLimit() const override { return 31; }
    void recover() override {}

    void meet(Peripheral& peripheral) override
    {
        peripheral.look();
        m_paths = peripheral.paths();
    }
    QByteArray read(const QString& uuid, quint16 offset) override
    {
        return QDBusReply<QByteArray>(order("Read", uuid, {QVariant::fromValue(offset)})).value();
    }
    void write(const QString& uuid, const QByteArray& value, quint16 offset) override
    {
        order("Write", uuid, {value, QVariant::fromValue(offset)});
    }
    void subscribe(const QString& uuid) override { order("Subscribe", uuid); }
    void unsubscribe(const QString& uuid) override { order("Unsubscribe", uuid); }
    QList<QByteArray> notified(const QString& uuid) override
    {
        return QDBusReply<QByteArrayList>(order("Notifications", uuid)).value();
    }

private:
    QDBusMessage order(const QString& member, const QString& uuid, const QVariantList& more = {})
    {
        const QVariantList path{QVariant::fromValue(QDBusObjectPath(m_paths.value(uuid)))};
        const QDBusMessage answer = Simulator::control(member, path + more);
        if (answer.type() != QDBusMessage::ReplyMessage) {
            throw Expect::Impossible{member + ": " + answer.errorMessage()};
        }
        return answer;
    }

    QString m_version;
    Simulator m_simulator;
    QMap<QString, QString> m_paths;
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    qDBusRegisterMetaType<QByteArrayList>();
    const QTemporaryDir logs;
    Child::setLogs(logs.path());
    try {
        SimulatedEnvironment environment(program.arguments().value(1));
        runChecks(environment);
        runRegistrationChecks(environment);
    } catch (const Expect::Impossible& impossible) {
        Expect::that(false, impossible.reason);
    }
    return Expect::failures() == 0 ? 0 : 1;
}
