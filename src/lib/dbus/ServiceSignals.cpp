#include "ServiceSignals.h"

#include "plimlog.h"

#include <QDBusError>
#include <QPointer>

namespace {

const QString busService = QStringLiteral("org.freedesktop.DBus");
const QString busPath = QStringLiteral("/org/freedesktop/DBus");
const QString noOwner = QStringLiteral("org.freedesktop.DBus.Error.NameHasNoOwner");

} // namespace

ServiceSignals::ServiceSignals(const QString& service, const QDBusConnection& connection, QObject* parent)
    : QObject(parent), m_service(service), m_connection(connection)
{
    const bool follows = connectTo(busService, busPath, busService, QStringLiteral("NameOwnerChanged"),
                                   {service}, QStringLiteral("sss"), SLOT(on_ownerChanged(QDBusMessage)));
    if (follows) {
        askForOwner();
    }
}

bool ServiceSignals::subscribe(const QString& path, const QString& interface, const QString& name,
                               const QString& signature)
{
    return connectTo(QString(), path, interface, name, {}, signature, SLOT(on_signal(QDBusMessage)));
}

// The slots take a message only: Qt 6 refuses a slot whose parameter types it does not know by name yet.
bool ServiceSignals::connectTo(const QString& service, const QString& path, const QString& interface,
                               const QString& name, const QStringList& firstArgument,
                               const QString& signature, const char* slot)
{
    const bool connected =
        m_connection.connect(service, path, interface, name, firstArgument, signature, this, slot);
    if (!connected) {
        const char* reason = m_connection.isConnected() ? "Qt refuses the connection" : "no bus";
        PLIM_LOG(plim::bleLogger(), ERROR, Q_FUNC_INFO,
                 "Cannot subscribe to " << interface << '.' << name << " for " << m_service << ": "
                                        << reason);
    }
    return connected;
}

void ServiceSignals::on_signal(const QDBusMessage& signal)
{
    if (m_waiting.isEmpty() && signal.service() == m_owner) {
        emit received(signal);
        return;
    }
    m_waiting.append(signal);
    if (!m_isAsking) {
        askForOwner();
    }
}

void ServiceSignals::on_ownerChanged(const QDBusMessage& signal)
{
    m_owner = signal.arguments().at(2).toString();
}

/** The answer decides about the signals that have arrived by now, not about later ones. */
void ServiceSignals::askForOwner()
{
    QDBusMessage call =
        QDBusMessage::createMethodCall(busService, busPath, busService, QStringLiteral("GetNameOwner"));
    call << m_service;
    m_asked = m_decided + m_waiting.size();
    m_isAsking = m_connection.callWithCallback(call, this, SLOT(on_owner(QDBusMessage)),
                                               SLOT(on_noOwner(QDBusError, QDBusMessage)));
    if (!m_isAsking) {
        forget("no bus");
    }
}

void ServiceSignals::on_owner(const QDBusMessage& answer)
{
    m_owner = answer.arguments().at(0).toString();
    decide();
}

void ServiceSignals::on_noOwner(const QDBusError& error, const QDBusMessage& /*call*/)
{
    m_owner.clear();
    if (error.name() == noOwner) {
        decide();
    } else {
        m_isAsking = false;
        forget(error.message().toUtf8().constData());
    }
}

/** Takes what has waited for the answer that has just come. */
void ServiceSignals::decide()
{
    const QString owner = m_owner;
    const qint64 count = m_asked;
    m_isAsking = false;
    if (m_decided + m_waiting.size() > count) {
        askForOwner();
    }
    // A receiver may run an event loop, in which a later answer decides about the rest, or delete this
    // object.
    const QPointer<ServiceSignals> self(this);
    while (self && m_decided < count) {
        ++m_decided;
        const QDBusMessage signal = m_waiting.takeFirst();
        if (signal.service() == owner) {
            emit received(signal);
        }
    }
}

/** Nobody can say whose signals those that wait are. */
void ServiceSignals::forget(const char* reason)
{
    if (!m_waiting.isEmpty()) {
        PLIM_LOG(plim::bleLogger(), ERROR, Q_FUNC_INFO,
                 "Signals that may be from " << m_service << " are lost: " << reason);
    }
    m_decided += m_waiting.size();
    m_waiting.clear();
}
