#include "Simulator.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusObjectPath>
#include <QDBusVariant>

namespace {

constexpr int PatienceMs = 30000;

QVariant asPath(const QString& path)
{
    return QVariant::fromValue(QDBusObjectPath(path));
}

} // namespace

QString Simulator::program()
{
    return qEnvironmentVariable("PLIM_SIMULATOR");
}

Simulator::Simulator(const QStringList& arguments)
{
    // Until the event loop has run once, Qt holds back what the bus delivers, and around that moment it mixes
    // up the order: the daemon's first announcement could overtake the news that it is there, and be dropped.
    QDBusConnection::systemBus();
    QCoreApplication::processEvents();
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.start(program(), arguments);
    while (!m_process.canReadLine()) {
        if (!m_process.waitForReadyRead(PatienceMs)) {
            qFatal("%s did not become ready: %s", qPrintable(program()), qPrintable(m_process.errorString()));
        }
    }
    const QByteArray line = m_process.readLine();
    if (!line.startsWith("plim-bluez-simulator: ready")) {
        qFatal("the simulator said: %s", line.constData());
    }
    roundTrip();
}

Simulator::~Simulator()
{
    end();
}

int Simulator::end()
{
    if (m_process.state() != QProcess::NotRunning) {
        m_process.terminate();
        if (!m_process.waitForFinished(PatienceMs)) {
            m_process.kill();
            m_process.waitForFinished(PatienceMs);
        }
    }
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

void Simulator::announce(const QString& path, const QStringList& interfaces)
{
    change("Announce", {asPath(path), interfaces});
}

void Simulator::withdraw(const QString& path, const QStringList& interfaces)
{
    change("Withdraw", {asPath(path), interfaces});
}

void Simulator::setProperty(const QString& path, const QString& interface, const QString& name,
                            const QVariant& value)
{
    change("SetProperty", {asPath(path), interface, name, QVariant::fromValue(QDBusVariant(value))});
}

void Simulator::answerWithError(const QString& member, const QString& name, const QString& message)
{
    setAnswer(member, QStringLiteral("error"), name, message);
}

void Simulator::answerLate(const QString& member, uint delayMs)
{
    setAnswer(member, QStringLiteral("late"), {}, {}, delayMs);
}

void Simulator::releaseAdvertisement(const QString& path)
{
    order("ReleaseAdvertisement", {asPath(path)});
}

QStringList Simulator::calls() const
{
    QStringList calls;
    for (const QVariantMap& record : callRecords()) {
        const QString full = record.value(QStringLiteral("text")).toString();
        const QString interface = record.value(QStringLiteral("interface")).toString() + QLatin1Char('.');
        calls << QString(full).remove(interface);
    }
    return calls;
}

QList<QVariantMap> Simulator::callRecords() const
{
    const QDBusMessage answer = order("Calls");
    QList<QVariantMap> records;
    for (const QVariantMap& record :
         qdbus_cast<QList<QVariantMap>>(answer.arguments().constFirst().value<QDBusArgument>())) {
        const QString member = record.value(QStringLiteral("member")).toString();
        if (member.startsWith(QLatin1String("Register")) || member.startsWith(QLatin1String("Unregister"))) {
            records << record;
        }
    }
    return records;
}

QVariantMap Simulator::advertisement(const QString& path) const
{
    return qdbus_cast<QVariantMap>(order("Advertisement", {asPath(path)}).arguments().constFirst());
}

QMap<QString, QString> Simulator::advertisementSignatures(const QString& path) const
{
    return qdbus_cast<QMap<QString, QString>>(
        order("AdvertisementSignatures", {asPath(path)}).arguments().constFirst());
}

void Simulator::settle() const
{
    // Twice: what arrives with the first round may make this program send something.
    for (int round = 0; round < 2; ++round) {
        roundTrip();
        QCoreApplication::processEvents();
    }
}

QDBusMessage Simulator::control(const QString& member, const QVariantList& arguments)
{
    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.plim.BluezSimulator"),
                                                       QStringLiteral("/org/plim/BluezSimulator"),
                                                       QStringLiteral("org.plim.BluezSimulator1"), member);
    call.setArguments(arguments);
    return QDBusConnection::systemBus().call(call);
}

QDBusMessage Simulator::order(const char* member, const QVariantList& arguments)
{
    const QDBusMessage answer = control(QLatin1String(member), arguments);
    if (answer.type() != QDBusMessage::ReplyMessage) {
        qFatal("the simulator refuses %s: %s", member, qPrintable(answer.errorMessage()));
    }
    return answer;
}

/** Gives an order after which the daemon tells everybody what changed. */
void Simulator::change(const char* member, const QVariantList& arguments)
{
    order(member, arguments);
    roundTrip();
}

/** Afterwards the bus has handed on all that the daemon sent before, so that none of it meets a later
 * subscriber. */
void Simulator::roundTrip()
{
    const QString bluez = QStringLiteral("org.bluez");
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.interface()->isServiceRegistered(bluez)) {
        return;
    }
    const QDBusMessage answer = bus.call(QDBusMessage::createMethodCall(
        bluez, QStringLiteral("/"), QStringLiteral("org.freedesktop.DBus.Introspectable"),
        QStringLiteral("Introspect")));
    if (answer.type() != QDBusMessage::ReplyMessage) {
        qFatal("the simulator does not answer: %s", qPrintable(answer.errorMessage()));
    }
}

QStringList Simulator::paths(const char* member)
{
    QStringList paths;
    const auto references = order(member).arguments().constFirst().value<QDBusArgument>();
    references.beginArray();
    while (!references.atEnd()) {
        QString sender;
        QDBusObjectPath path;
        references.beginStructure();
        references >> sender >> path;
        references.endStructure();
        paths << path.path();
    }
    references.endArray();
    return paths;
}

void Simulator::setAnswer(const QString& member, const QString& mode, const QString& name,
                          const QString& message, uint delayMs)
{
    order("SetAnswer", {member, mode, name, message, delayMs});
}
