#include "GattPreflight.h"

namespace {

constexpr uint genericAccess = 0x1800;
constexpr uint genericAttribute = 0x1801;
constexpr uint clientConfiguration = 0x2902;

} // namespace

BleFindings GattPreflight::findings(const GattSnapshot& app)
{
    GattPreflight preflight;
    preflight.check(app, true);
    return preflight.m_findings;
}

void GattPreflight::check(const GattSnapshot& object, bool parentHasPath)
{
    if (object.isDisplaced) {
        add(BleFinding::Error, object,
            QStringLiteral("Another one with the UUID \"%1\" was added later and has taken its place")
                .arg(object.uuid),
            QStringLiteral("Give every child of the same parent a UUID of its own"));
        return;
    }
    if (parentHasPath) {
        m_findings += Preflight::pathFindings(object.path, object.exportState);
    }
    if (object.kind != GattSnapshot::Application) {
        checkUuid(object);
        checkUse(object);
    } else if (object.children.empty()) {
        add(BleFinding::Error, object, QStringLiteral("The application has no service"),
            QStringLiteral("Call createService()"));
    }
    for (const GattSnapshot& child : object.children) {
        check(child, parentHasPath && object.exportState == Preflight::Exported);
    }
}

void GattPreflight::checkUuid(const GattSnapshot& object)
{
    m_findings += Preflight::uuidFindings(object.path, object.uuid);
    const Preflight::Uuid uuid(object.uuid);
    if (uuid.is(genericAccess) || uuid.is(genericAttribute)) {
        add(BleFinding::Error, object, QStringLiteral("BlueZ keeps the UUIDs 0x1800 and 0x1801 for itself"),
            QStringLiteral("Leave it out: every device has these services already"));
    }
}

void GattPreflight::checkUse(const GattSnapshot& object)
{
    if (!object.hasFlags) {
        add(BleFinding::Error, object, QStringLiteral("It has no flag, so that nobody may use it"),
            QStringLiteral("Create it with at least one of the options"));
    }
    if (object.notifies && !object.hasValue) {
        add(BleFinding::Warning, object, QStringLiteral("It notifies, but no value was ever set"),
            QStringLiteral("Call setValue() whenever there is something to notify, and "
                           "once before for those who read first"));
    }
    if (object.kind == GattSnapshot::Descriptor && Preflight::Uuid(object.uuid).is(clientConfiguration)) {
        add(BleFinding::Warning, object,
            QStringLiteral("A client characteristic configuration descriptor is BlueZ's to "
                           "make, which does so for every characteristic that notifies"),
            QStringLiteral("Leave it out, and follow notifyStateChanged()"));
    }
}

void GattPreflight::add(BleFinding::Severity severity, const GattSnapshot& object, const QString& message,
                        const QString& remedy)
{
    m_findings << BleFinding{severity, object.path, message, remedy};
}
