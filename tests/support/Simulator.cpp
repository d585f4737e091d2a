#include "Simulator.h"

#include <QCoreApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusVariant>

using PlimBleTestDetail::asPath;

QString Simulator::program()
{
    return qEnvironmentVariable("PLIM_SIMULATOR");
}

Simulator::Simulator(const QStringList& arguments)
{
    const QString line = m_process.startAndRead(program(), arguments);
    if (!line.startsWith("plim-bluez-simulator: ready")) {
        qFatal("the simulator did not become ready: %s", qPrintable(line));
    }
    PlimBleTestDetail::awaitDaemon();
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
    QList<QVariantMap> records;
    for (const QVariantMap& record : allCallRecords()) {
        const QString member = record.value(QStringLiteral("member")).toString();
        if (member.startsWith(QLatin1String("Register")) || member.startsWith(QLatin1String("Unregister"))) {
            records << record;
        }
    }
    return records;
}

int Simulator::callsOf(const QString& member) const
{
    int count = 0;
    for (const QVariantMap& record : allCallRecords()) {
        count += record.value(QStringLiteral("member")) == member ? 1 : 0;
    }
    return count;
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
    // The first turn of the event loop is what makes Qt begin to deliver messages.
    QCoreApplication::processEvents();
    // Twice: what arrives with the first round may make this program send something.
    for (int round = 0; round < 2; ++round) {
        PlimBleTestDetail::awaitDaemon();
        QCoreApplication::processEvents();
    }
}

QDBusMessage Simulator::control(const QString& member, const QVariantList& arguments)
{
    return PlimBleTestDetail::control(member, arguments, PlimBleTestDetail::Waiting::Blocked);
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
    PlimBleTestDetail::awaitDaemon();
}

QList<QVariantMap> Simulator::allCallRecords()
{
    return qdbus_cast<QList<QVariantMap>>(order("Calls").arguments().constFirst().value<QDBusArgument>());
}

QStringList Simulator::paths(const char* member)
{
    return PlimBleTestDetail::pathsIn(order(member).arguments().constFirst());
}

void Simulator::setAnswer(const QString& member, const QString& mode, const QString& name,
                          const QString& message, uint delayMs)
{
    order("SetAnswer", {member, mode, name, message, delayMs});
}
