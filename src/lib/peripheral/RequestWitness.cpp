#include "RequestWitness.h"

#include "BluezObjects.h"

#include <QDBusMessage>
#include <QDBusObjectPath>

namespace {

/** More centrals than any peripheral has. Without a limit, a caller could fill the memory. */
constexpr int maximumWaiting = 256;

thread_local std::weak_ptr<plim::detail::RequestWitness> current;

} // namespace

std::shared_ptr<plim::detail::RequestWitness> plim::detail::RequestWitness::shared()
{
    std::shared_ptr<RequestWitness> witness = current.lock();
    if (!witness) {
        witness.reset(new RequestWitness);
        current = witness;
    }
    return witness;
}

plim::detail::RequestWitness::RequestWitness() : m_bluez(BluezObjects::shared()) {}

void plim::detail::RequestWitness::note(const QDBusMessage& request, const QVariantMap& options)
{
    // Held for the time of the signal, in whose slots the others may let go.
    if (const std::shared_ptr<RequestWitness> witness = current.lock()) {
        witness->pass(
            {request.service(), options.value(QStringLiteral("device")).value<QDBusObjectPath>().path(),
             options.value(QStringLiteral("link")).toString(), options.value(QStringLiteral("mtu")).toInt()});
    }
}

void plim::detail::RequestWitness::pass(const Request& request)
{
    if (!m_bluez->isStarting()) {
        tell(request);
    } else if (m_waiting < maximumWaiting) {
        ++m_waiting;
        m_bluez->whenLooked(this, [this, request] {
            --m_waiting;
            tell(request);
        });
    }
}

void plim::detail::RequestWitness::tell(const Request& request)
{
    emit requested(request.caller, request.device, request.link, request.mtu);
}
