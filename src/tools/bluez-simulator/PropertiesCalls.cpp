#include "PropertiesCalls.h"

#include "Daemon.h"
#include "Names.h"

#include <QDBusMessage>
#include <QDBusVariant>

namespace simulator {

namespace {

void getProperties(Daemon& daemon, const QDBusMessage& call)
{
    const QString invalid = QStringLiteral("org.freedesktop.DBus.Error.InvalidArgs");
    const DBusInterfaceList interfaces = daemon.tree().interfaces(call.path());
    const QString interface = call.arguments().constFirst().toString();
    const QString name = call.arguments().value(1).toString();
    const QVariantMap properties = interfaces.value(interface);
    if (!interfaces.contains(interface)) {
        daemon.refuse(call, {invalid, QStringLiteral("No such interface '%1'").arg(interface)});
    } else if (call.member() == QLatin1String("GetAll")) {
        daemon.answer(call, {properties});
    } else if (!properties.contains(name)) {
        daemon.refuse(call, {invalid, QStringLiteral("No such property '%1'").arg(name)});
    } else {
        daemon.answer(call, {QVariant::fromValue(QDBusVariant(properties.value(name)))});
    }
}

void setProperty(Daemon& daemon, const QDBusMessage& call)
{
    static const QStringList writable{
        QStringLiteral("Alias"),    QStringLiteral("Discoverable"),    QStringLiteral("DiscoverableTimeout"),
        QStringLiteral("Pairable"), QStringLiteral("PairableTimeout"), QStringLiteral("Powered")};
    const QString interface = call.arguments().constFirst().toString();
    const QString name = call.arguments().at(1).toString();
    const QVariant value = call.arguments().at(2).value<QDBusVariant>().variant();
    const QVariant present = daemon.tree().interfaces(call.path()).value(interface).value(name);
    if (interface != Names::Adapter || !writable.contains(name)) {
        daemon.refuse(call, {QStringLiteral("org.freedesktop.DBus.Error.PropertyReadOnly"),
                             QStringLiteral("Property '%1' is not writable").arg(name)});
    } else if (value.userType() != present.userType()) {
        daemon.refuse(call, Refusal::invalidArguments());
    } else {
        daemon.changeProperty(call.path(), interface, name, value);
        daemon.answer(call, {});
    }
}

} // namespace

bool handlePropertiesCall(Daemon& daemon, const QDBusMessage& call)
{
    const bool concerned = call.interface().isEmpty() || call.interface() == Names::Properties;
    if (!concerned || daemon.tree().interfaces(call.path()).isEmpty()) {
        return false;
    }
    const QString form = call.member() + QLatin1Char(' ') + call.signature();
    if (form == QLatin1String("Get ss") || form == QLatin1String("GetAll s")) {
        getProperties(daemon, call);
    } else if (form == QLatin1String("Set ssv")) {
        setProperty(daemon, call);
    } else {
        return false;
    }
    return true;
}

} // namespace simulator
