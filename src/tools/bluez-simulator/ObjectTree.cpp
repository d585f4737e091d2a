#include "ObjectTree.h"

#include "AdvertisingManager.h"
#include "DBusValue.h"
#include "Names.h"

namespace simulator {

namespace {

QVariantMap adapterProperties(const QString& path)
{
    const QString name = path.section(QLatin1Char('/'), -1);
    const uint number = QStringView(name).right(1).toString().toUInt();
    return {{QStringLiteral("Address"),
             QStringLiteral("00:AA:01:00:00:%1").arg(number, 2, 16, QLatin1Char('0')).toUpper()},
            {QStringLiteral("AddressType"), QStringLiteral("public")},
            {QStringLiteral("Name"), QStringLiteral("plim-bluez-simulator")},
            {QStringLiteral("Alias"), QStringLiteral("plim-bluez-simulator")},
            {QStringLiteral("Class"), 0U},
            {QStringLiteral("Powered"), true},
            {QStringLiteral("Discoverable"), false},
            {QStringLiteral("DiscoverableTimeout"), 180U},
            {QStringLiteral("Pairable"), false},
            {QStringLiteral("PairableTimeout"), 0U},
            {QStringLiteral("Discovering"), false},
            {QStringLiteral("UUIDs"), QStringList{}},
            {QStringLiteral("Roles"), QStringList{QStringLiteral("central"), QStringLiteral("peripheral")}}};
}

QVariantMap firstProperties(const QString& path, const QString& interface)
{
    if (interface == Names::Adapter) {
        return adapterProperties(path);
    }
    if (interface == Names::AdvertisingManager) {
        return AdvertisingManager::managerProperties(0);
    }
    return {};
}

/** The methods and signals of an interface as introspection shows them. */
QString membersXml(const QString& interface)
{
    static const QMap<QString, QString> members{
        {Names::Introspectable,
         QStringLiteral(
             "<method name=\"Introspect\"><arg name=\"xml\" type=\"s\" direction=\"out\"/></method>")},
        {Names::Properties,
         QStringLiteral("<method name=\"Get\"><arg name=\"interface\" type=\"s\" direction=\"in\"/>"
                        "<arg name=\"name\" type=\"s\" direction=\"in\"/>"
                        "<arg name=\"value\" type=\"v\" direction=\"out\"/></method>"
                        "<method name=\"Set\"><arg name=\"interface\" type=\"s\" direction=\"in\"/>"
                        "<arg name=\"name\" type=\"s\" direction=\"in\"/>"
                        "<arg name=\"value\" type=\"v\" direction=\"in\"/></method>"
                        "<method name=\"GetAll\"><arg name=\"interface\" type=\"s\" direction=\"in\"/>"
                        "<arg name=\"properties\" type=\"a{sv}\" direction=\"out\"/></method>"
                        "<signal name=\"PropertiesChanged\"><arg name=\"interface\" type=\"s\"/>"
                        "<arg name=\"changed_properties\" type=\"a{sv}\"/>"
                        "<arg name=\"invalidated_properties\" type=\"as\"/></signal>")},
        {Names::ObjectManager,
         QStringLiteral("<method name=\"GetManagedObjects\">"
                        "<arg name=\"objects\" type=\"a{oa{sa{sv}}}\" direction=\"out\"/></method>"
                        "<signal name=\"InterfacesAdded\"><arg name=\"object\" type=\"o\"/>"
                        "<arg name=\"interfaces\" type=\"a{sa{sv}}\"/></signal>"
                        "<signal name=\"InterfacesRemoved\"><arg name=\"object\" type=\"o\"/>"
                        "<arg name=\"interfaces\" type=\"as\"/></signal>")},
        {Names::GattManager,
         QStringLiteral("<method name=\"RegisterApplication\">"
                        "<arg name=\"application\" type=\"o\" direction=\"in\"/>"
                        "<arg name=\"options\" type=\"a{sv}\" direction=\"in\"/></method>"
                        "<method name=\"UnregisterApplication\">"
                        "<arg name=\"application\" type=\"o\" direction=\"in\"/></method>")},
        {Names::AdvertisingManager,
         QStringLiteral("<method name=\"RegisterAdvertisement\">"
                        "<arg name=\"advertisement\" type=\"o\" direction=\"in\"/>"
                        "<arg name=\"options\" type=\"a{sv}\" direction=\"in\"/></method>"
                        "<method name=\"UnregisterAdvertisement\">"
                        "<arg name=\"service\" type=\"o\" direction=\"in\"/></method>")},
        {Names::AgentManager,
         QStringLiteral("<method name=\"RegisterAgent\"><arg name=\"agent\" type=\"o\" direction=\"in\"/>"
                        "<arg name=\"capability\" type=\"s\" direction=\"in\"/></method>"
                        "<method name=\"UnregisterAgent\">"
                        "<arg name=\"agent\" type=\"o\" direction=\"in\"/></method>"
                        "<method name=\"RequestDefaultAgent\">"
                        "<arg name=\"agent\" type=\"o\" direction=\"in\"/></method>")}};
    return members.value(interface);
}

QString interfaceXml(const QString& interface, const QVariantMap& properties)
{
    QString xml = QStringLiteral("<interface name=\"%1\">").arg(interface) + membersXml(interface);
    for (auto property = properties.begin(); property != properties.end(); ++property) {
        xml += QStringLiteral("<property name=\"%1\" type=\"%2\" access=\"read\"/>")
                   .arg(property.key(), DBusValue::signature(property.value()));
    }
    return xml + QStringLiteral("</interface>");
}

} // namespace

DBusInterfaceList ObjectTree::add(const QString& path, const QStringList& interfaces)
{
    DBusInterfaceList& known = m_objects[QDBusObjectPath(path)];
    DBusInterfaceList added;
    for (const QString& interface : interfaces) {
        if (!known.contains(interface)) {
            known[interface] = firstProperties(path, interface);
        }
        added[interface] = known.value(interface);
    }
    return added;
}

void ObjectTree::remove(const QString& path, const QStringList& interfaces)
{
    const auto found = m_objects.find(QDBusObjectPath(path));
    if (found == m_objects.end()) {
        return;
    }
    for (const QString& interface : interfaces) {
        found->remove(interface);
    }
    if (found->isEmpty()) {
        m_objects.erase(found);
    }
}

bool ObjectTree::contains(const QString& path, const QString& interface) const
{
    return interfaces(path).contains(interface);
}

bool ObjectTree::setProperty(const QString& path, const QString& interface, const QString& name,
                             const QVariant& value)
{
    if (!contains(path, interface)) {
        return false;
    }
    m_objects[QDBusObjectPath(path)][interface][name] = value;
    return true;
}

QString ObjectTree::introspection(const QString& path) const
{
    const QStringList below = children(path);
    DBusInterfaceList shown = interfaces(path);
    if (shown.isEmpty() && below.isEmpty()) {
        return QString();
    }
    shown[Names::Introspectable];
    if (!interfaces(path).isEmpty()) {
        shown[Names::Properties];
    }
    if (path == QLatin1String("/")) {
        shown[Names::ObjectManager];
    }
    QString xml =
        QStringLiteral("<!DOCTYPE node PUBLIC \"-//freedesktop//DTD D-BUS Object Introspection 1.0//EN\"\n"
                       "\"http://www.freedesktop.org/standards/dbus/1.0/introspect.dtd\">\n<node>");
    for (auto interface = shown.begin(); interface != shown.end(); ++interface) {
        xml += interfaceXml(interface.key(), interface.value());
    }
    for (const QString& child : below) {
        xml += QStringLiteral("<node name=\"%1\"/>").arg(child);
    }
    return xml + QStringLiteral("</node>\n");
}

QStringList ObjectTree::children(const QString& path) const
{
    const QString prefix = path == QLatin1String("/") ? path : path + QLatin1Char('/');
    QStringList names;
    for (auto object = m_objects.begin(); object != m_objects.end(); ++object) {
        const QString candidate = object.key().path();
        if (candidate.startsWith(prefix) && candidate.size() > prefix.size()) {
            names += candidate.mid(prefix.size()).section(QLatin1Char('/'), 0, 0);
        }
    }
    names.removeDuplicates();
    return names;
}

} // namespace simulator
