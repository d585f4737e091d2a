#include "GattPreflight.h"

#include "GattApplication.h"

#include <algorithm>

namespace {

constexpr uint genericAccess = 0x1800;
constexpr uint genericAttribute = 0x1801;
constexpr uint clientConfiguration = 0x2902;

} // namespace

BleFindings GattPreflight::of(const GattApplication& app)
{
    GattPreflight preflight;
    preflight.m_hasPath = preflight.checkPath(&app, app.m_dbusPath);
    if (app.m_services.isEmpty()) {
        preflight.m_findings << BleFinding{BleFinding::Error, app.m_dbusPath,
                                           QStringLiteral("The application has no service"),
                                           QStringLiteral("Call createService()")};
    }
    preflight.checkSiblings<GattService>(app, app.m_services);
    return preflight.m_findings;
}

void GattPreflight::check(const GattService& service)
{
    checkUuid(service.m_dbusPath, service.m_uuid);
    checkSiblings<GattCharacteristic>(service, service.m_characteristics);
}

void GattPreflight::check(const GattCharacteristic& characteristic)
{
    const QString& path = characteristic.m_dbusPath;
    checkUuid(path, characteristic.m_uuid);
    checkFlags(path, characteristic.m_option &
                         (GattCharacteristic::Read | GattCharacteristic::Write | GattCharacteristic::Notify));
    const bool hasValue =
        !characteristic.m_value.isNull() || characteristic.m_hasPendingValue || characteristic.m_readCallback;
    if ((characteristic.m_option & GattCharacteristic::Notify) && !hasValue) {
        m_findings << BleFinding{BleFinding::Warning, path,
                                 QStringLiteral("It notifies, but no value was ever set"),
                                 QStringLiteral("Call setValue() whenever there is something to notify, and "
                                                "once before for those who read first")};
    }
    checkSiblings<GattDescriptor>(characteristic, characteristic.m_descriptors);
}

void GattPreflight::check(const GattDescriptor& descriptor)
{
    const QString& path = descriptor.m_dbusPath;
    checkUuid(path, descriptor.m_uuid);
    checkFlags(path, descriptor.m_option & (GattDescriptor::Read | GattDescriptor::Write));
    if (Preflight::Uuid(descriptor.m_uuid).is(clientConfiguration)) {
        m_findings << BleFinding{
            BleFinding::Warning, path,
            QStringLiteral("A client characteristic configuration descriptor is BlueZ's to "
                           "make, which does so for every characteristic that notifies"),
            QStringLiteral("Leave it out, and follow notifyStateChanged()")};
    }
}

void GattPreflight::checkUuid(const QString& path, const QString& uuid)
{
    m_findings += Preflight::uuidFindings(path, uuid);
    const Preflight::Uuid read(uuid);
    if (read.is(genericAccess) || read.is(genericAttribute)) {
        m_findings << BleFinding{BleFinding::Error, path,
                                 QStringLiteral("BlueZ keeps the UUIDs 0x1800 and 0x1801 for itself"),
                                 QStringLiteral("Leave it out: every device has these services already")};
    }
}

void GattPreflight::checkFlags(const QString& path, bool any)
{
    if (!any) {
        m_findings << BleFinding{BleFinding::Error, path,
                                 QStringLiteral("It has no flag, so that nobody may use it"),
                                 QStringLiteral("Create it with at least one of the options")};
    }
}

bool GattPreflight::checkPath(const QObject* object, const QString& path)
{
    const BleFindings found = Preflight::pathFindings(object, path);
    m_findings += found;
    return found.isEmpty();
}

/** Checks all children of a kind, those that a later one has displaced included. */
template <typename Child, typename Children>
void GattPreflight::checkSiblings(const QObject& parent, const Children& recorded)
{
    const bool parentHasPath = m_hasPath;
    const auto children = parent.findChildren<Child*>(QString(), Qt::FindDirectChildrenOnly);
    for (const Child* child : children) {
        if (std::find(recorded.cbegin(), recorded.cend(), child) == recorded.cend()) {
            m_findings << BleFinding{
                BleFinding::Error, child->m_dbusPath,
                QStringLiteral("Another one with the UUID \"%1\" was added later and has taken its place")
                    .arg(child->m_uuid),
                QStringLiteral("Give every child of the same parent a UUID of its own")};
            continue;
        }
        m_hasPath = parentHasPath && checkPath(child, child->m_dbusPath);
        check(*child);
    }
}
