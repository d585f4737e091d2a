#include "RequestWitness.h"

#include <QDBusMessage>
#include <QDBusObjectPath>

namespace {

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

void plim::detail::RequestWitness::note(const QDBusMessage& request, const QVariantMap& options)
{
    // Held for the time of the signal, in whose slots the others may let go.
    if (const std::shared_ptr<RequestWitness> witness = current.lock()) {
        emit witness->requested(
            request.service(), options.value(QStringLiteral("device")).value<QDBusObjectPath>().path(),
            options.value(QStringLiteral("link")).toString(), options.value(QStringLiteral("mtu")).toInt());
    }
}
