#include "AgentObject.h"

#include "BluezInterfaces.h"
#include "BluezObjects.h"
#include "plim.h"
#include "plimlog.h"

#include <QDBusConnection>
#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <atomic>

namespace {

QString freePath()
{
    static std::atomic_int agents{0};
    return QStringLiteral("/org/plim/agent%1").arg(++agents);
}

QString digits(uint passkey)
{
    return QStringLiteral("%1").arg(passkey, 6, 10, QLatin1Char('0'));
}

} // namespace

plim::detail::AgentObject::AgentObject(std::chrono::milliseconds patience)
    : m_path(freePath()), m_patience(patience), m_bluez(BluezObjects::shared())
{
    // Without a connection to the bus nobody calls.
    QDBusConnection::systemBus().registerObject(m_path, this, QDBusConnection::ExportAllSlots);
    plim::connect(m_bluez.get(), &BluezObjects::propertiesChanged, this, &AgentObject::onChanged);
    plim::connect(m_bluez.get(), &BluezObjects::objectRemoved, this, &AgentObject::endOf);
}

plim::detail::AgentObject::~AgentObject()
{
    QDBusConnection::systemBus().unregisterObject(m_path);
    for (const auto& open : m_open) {
        if (const auto call = open.lock()) {
            call->reject();
        }
    }
}

void plim::detail::AgentObject::setDaemon(const QString& uniqueName)
{
    if (m_daemon != uniqueName) {
        m_daemon = uniqueName;
        endAll();
    }
}

void plim::detail::AgentObject::Release()
{
    if (isDaemon()) {
        const QPointer<AgentObject> self(this);
        const QString daemon = m_daemon;
        endAll();
        // In the event loop of a slot, BlueZ may have restarted.
        if (self && m_daemon == daemon) {
            emit released();
        }
    }
}

QString plim::detail::AgentObject::RequestPinCode(const QDBusObjectPath& device)
{
    PendingPairing::Question question;
    question.kind = PairingRequest::EnterPasskey;
    question.wantsPin = true;
    ask(question, device);
    return QString();
}

void plim::detail::AgentObject::DisplayPinCode(const QDBusObjectPath& device, const QString& pincode)
{
    show(device, pincode);
}

uint plim::detail::AgentObject::RequestPasskey(const QDBusObjectPath& device)
{
    PendingPairing::Question question;
    question.kind = PairingRequest::EnterPasskey;
    ask(question, device);
    return 0;
}

void plim::detail::AgentObject::DisplayPasskey(const QDBusObjectPath& device, uint passkey,
                                               ushort /*entered*/)
{
    show(device, digits(passkey));
}

void plim::detail::AgentObject::RequestConfirmation(const QDBusObjectPath& device, uint passkey)
{
    PendingPairing::Question question;
    question.kind = PairingRequest::CompareNumbers;
    question.passkey = digits(passkey);
    ask(question, device);
}

void plim::detail::AgentObject::RequestAuthorization(const QDBusObjectPath& device)
{
    ask(PendingPairing::Question(), device);
}

void plim::detail::AgentObject::AuthorizeService(const QDBusObjectPath& device, const QString& uuid)
{
    PendingPairing::Question question;
    question.kind = PairingRequest::AuthorizeService;
    question.service = uuid;
    ask(question, device);
}

void plim::detail::AgentObject::Cancel()
{
    if (isDaemon()) {
        endAll();
    }
}

/** Answers everybody else with an error. */
bool plim::detail::AgentObject::isDaemon() const
{
    if (!calledFromDBus()) {
        return false;
    }
    if (!m_daemon.isEmpty() && message().service() == m_daemon) {
        return true;
    }
    PLIM_LOG(bleLogger(), WARN, Q_FUNC_INFO,
             message().member() << " of the pairing agent refused: " << message().service()
                                << " is not BlueZ");
    sendErrorReply(QStringLiteral("org.freedesktop.DBus.Error.AccessDenied"),
                   QStringLiteral("Only BlueZ may call the pairing agent"));
    return false;
}

/** May end this object. */
void plim::detail::AgentObject::ask(PendingPairing::Question question, const QDBusObjectPath& device)
{
    if (!isDaemon()) {
        return;
    }
    setDelayedReply(question.kind != PairingRequest::ShowPasskey);
    question.central = Central(device.path());
    const auto call = std::make_shared<PendingPairing>(message(), connection(), question);
    tidy();
    m_open.push_back(call);
    limit(call);
    if (question.kind == PairingRequest::ShowPasskey) {
        m_shown = call;
    }
    emit asked(PairingRequest(call));
}

/** Ends a request when BlueZ does not wait for its answer any more. */
void plim::detail::AgentObject::limit(const std::weak_ptr<PendingPairing>& open)
{
    // A child: QTimer::singleShot() would outlive this object.
    auto* timer = new QTimer(this);
    timer->setSingleShot(true);
    plim::connect(timer, &QTimer::timeout, this, [this, timer, open] {
        timer->deleteLater();
        endThose([&](const auto& other) { return other == open.lock(); });
    });
    timer->start(m_patience);
}

/** BlueZ may call again while its user types, with the number of digits so far. */
void plim::detail::AgentObject::show(const QDBusObjectPath& device, const QString& passkey)
{
    if (!isDaemon()) {
        return;
    }
    if (m_shown && !m_shown->isAnswered() && m_shown->question().central.path() == device.path() &&
        m_shown->question().passkey == passkey) {
        return;
    }
    PendingPairing::Question question;
    question.kind = PairingRequest::ShowPasskey;
    question.passkey = passkey;
    ask(question, device);
}

/** May end this object. */
template <typename Condition>
void plim::detail::AgentObject::endThose(const Condition& condition)
{
    std::vector<std::shared_ptr<PendingPairing>> ending;
    for (const auto& open : m_open) {
        const auto call = open.lock();
        if (call && !call->isAnswered() && condition(call)) {
            ending.push_back(call);
        }
    }
    const QPointer<AgentObject> self(this);
    for (const auto& call : ending) {
        if (call->end() && self) {
            emit ended(PairingRequest(call));
        }
    }
    if (self) {
        tidy();
    }
}

void plim::detail::AgentObject::endAll()
{
    endThose([](const std::shared_ptr<PendingPairing>&) { return true; });
}

void plim::detail::AgentObject::endOf(const QString& central)
{
    endThose([path = central](const std::shared_ptr<PendingPairing>& call) {
        return call->question().central.path() == path;
    });
}

void plim::detail::AgentObject::onChanged(const QString& path, const QString& interface,
                                          const QStringList& names)
{
    const auto becomes = [&](const QString& name, bool value) {
        return names.contains(name) && m_bluez->value(path, interface, name) == QVariant(value);
    };
    if (interface != BluezInterfaces::Device) {
        return;
    }
    const bool hasPaired = becomes(QStringLiteral("Paired"), true);
    const QPointer<AgentObject> self(this);
    if (hasPaired || becomes(QStringLiteral("Connected"), false)) {
        endOf(path);
    }
    if (self && hasPaired) {
        emit paired(Central(path));
    }
}

void plim::detail::AgentObject::tidy()
{
    const auto isOver = [](const std::weak_ptr<PendingPairing>& open) {
        const auto call = open.lock();
        return !call || call->isAnswered();
    };
    m_open.erase(std::remove_if(m_open.begin(), m_open.end(), isOver), m_open.end());
    if (m_shown && m_shown->isAnswered()) {
        m_shown.reset();
    }
}
