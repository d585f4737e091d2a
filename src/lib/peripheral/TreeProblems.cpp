#include "TreeProblems.h"

#include "AttributeServer.h"
#include "Characteristic.h"
#include "Descriptor.h"
#include "GattApplication.h"
#include "Service.h"

namespace {

/** Whether the daemon rejects characteristics without the property Handle, which this library does not offer.
 */
bool needsHandles(const QVersionNumber& daemon)
{
    return daemon.majorVersion() == 5 && (daemon.minorVersion() == 74 || daemon.minorVersion() == 75);
}

} // namespace

BleFindings plim::detail::TreeProblems::of(const GattApplication& application)
{
    for (const GattService* service : application.services()) {
        check(*service);
    }
    if (!m_protected.isEmpty() && !m_hasAgent) {
        add(BleFinding::Warning, m_protected,
            "It takes a protected link, and this program answers no central that wants to pair",
            "Create a plim::PairingAgent first, let another agent run on the machine, or pair the centrals "
            "beforehand");
    }
    if (m_hasCharacteristic && needsHandles(m_daemon)) {
        add(BleFinding::Error, application.dbusPath(),
            "BlueZ 5.74 and 5.75 take no characteristic without a fixed handle",
            "Use another version of the daemon");
    }
    return m_findings;
}

void plim::detail::TreeProblems::check(const GattService& service)
{
    if (const auto* own = qobject_cast<const Service*>(&service)) {
        checkIncludes(*own);
    }
    for (const GattCharacteristic* characteristic : service.characteristics()) {
        check(*characteristic);
    }
}

void plim::detail::TreeProblems::check(const GattCharacteristic& characteristic)
{
    m_hasCharacteristic = true;
    if (const auto* own = qobject_cast<const Characteristic*>(&characteristic)) {
        checkAccess(own->dbusPath(), own->access(), own->m_server->hasWriteHandler());
        if (own->m_tracking && !own->access().allowsSubscribing()) {
            add(BleFinding::Warning, own->dbusPath(), "Its subscribers are tracked, but nobody can subscribe",
                "Let its access allow notifications or indications");
        }
    }
    for (const GattDescriptor* descriptor : characteristic.descriptors()) {
        check(*descriptor);
    }
}

void plim::detail::TreeProblems::check(const GattDescriptor& descriptor)
{
    if (const auto* own = qobject_cast<const Descriptor*>(&descriptor)) {
        checkAccess(own->dbusPath(), own->access(), own->m_server->hasWriteHandler());
    }
}

void plim::detail::TreeProblems::checkIncludes(const Service& service)
{
    for (const GattService* included : service.m_includes) {
        if (!included) {
            continue;
        }
        if (included->parent() != service.parent()) {
            add(BleFinding::Error, service.dbusPath(), "It includes a service of another application",
                "Include services of the same application only");
        } else if (service.dbusPath() <= included->dbusPath()) {
            add(BleFinding::Error, service.dbusPath(),
                "It includes a service whose object path comes after its own",
                "Give both services path elements that sort the other way round");
        }
    }
}

void plim::detail::TreeProblems::checkAccess(const QString& path, const Access& access, bool hasWriteHandler)
{
    if (hasWriteHandler && access.allowsWriteWithoutResponse()) {
        add(BleFinding::Warning, path,
            "BlueZ acknowledges writes before the write handler decides, since it may be written without an "
            "answer",
            "Leave writeWithoutResponse() out where a refusal has to reach the central");
    }
    if (m_protected.isEmpty() && access.isProtected()) {
        m_protected = path;
    }
}

void plim::detail::TreeProblems::add(BleFinding::Severity severity, const QString& path, const char* message,
                                     const char* remedy)
{
    m_findings << BleFinding{severity, path, QString::fromLatin1(message), QString::fromLatin1(remedy)};
}
