#include "Pairing.h"

#include "AttPhone.h"
#include "Daemon.h"
#include "Names.h"
#include "State.h"

#include <QDBusError>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QRandomGenerator>
#include <QTimer>

namespace simulator {

namespace {

const QString pairing = QStringLiteral("pairing");
const QString notSupported = QStringLiteral("0x05 Pairing Not Supported");
const QString rejected = QStringLiteral("0x0c Numeric Comparison Failed");
const QString wrongPasskey = QStringLiteral("0x04 Confirm Value Failed");
const QString cancelled = QStringLiteral("cancelled by the phone");

constexpr uint passkeys = 1000000;

QString digits(uint passkey)
{
    return QStringLiteral("%1").arg(passkey, 6, 10, QLatin1Char('0'));
}

} // namespace

Pairing::Pairing(AttPhone* phone, Daemon* daemon) : QObject(phone), m_phone(phone), m_daemon(daemon)
{
    connect(&m_daemon->agents(), &AgentManager::dropped, this, [this](const QString& sender) {
        if (m_state == pairing && sender == m_agent.sender) {
            m_isAsking = false;
            fail(notSupported);
        }
    });
}

QString Pairing::start(const QString& capability)
{
    static const QStringList capabilities{QStringLiteral("DisplayOnly"), QStringLiteral("DisplayYesNo"),
                                          QStringLiteral("KeyboardOnly"), QStringLiteral("NoInputNoOutput"),
                                          QStringLiteral("KeyboardDisplay")};
    if (!capabilities.contains(capability)) {
        return QStringLiteral("\"%1\" is none of the capabilities %2")
            .arg(capability, capabilities.join(QLatin1String(", ")));
    }
    if (!m_phone->isConnected()) {
        return QStringLiteral("The phone is not connected");
    }
    if (m_state == pairing) {
        return QStringLiteral("The phone is pairing already");
    }
    ++m_attempt;
    m_state = pairing;
    m_shown.clear();
    m_agent = m_daemon->agents().defaultAgent();
    const QVariantMap adapter = m_daemon->tree().interfaces(m_phone->state().adapter).value(Names::Adapter);
    const bool isPairable = adapter.value(QStringLiteral("Pairable")).toBool();
    const Method method = methodOf(m_agent.capability, capability);
    // JustWorksRepairing=never: whoever is bonded on the daemon's side has to be removed there first.
    const bool isRepairing = m_phone->state().isBonded && method == JustWorks;
    if (!m_agent || !isPairable) {
        fail(notSupported);
    } else if (isRepairing) {
        fail(rejected);
    } else {
        ask(method);
    }
    return QString();
}

void Pairing::cancel()
{
    if (m_state == pairing) {
        cancelQuestion();
        fail(cancelled);
    }
}

QString Pairing::type(const QString& passkey)
{
    if (m_state != pairing || m_method != DeviceShows) {
        return QStringLiteral("The phone does not ask for a passkey");
    }
    if (passkey == digits(m_passkey)) {
        succeed();
    } else {
        fail(wrongPasskey);
    }
    return QString();
}

void Pairing::loseLink()
{
    if (m_state == pairing) {
        cancelQuestion();
        m_state = QStringLiteral("failed: the link was lost");
    }
}

/** The method, of phones that want protection against a man in the middle where both sides allow it. */
Pairing::Method Pairing::methodOf(const QString& deviceCan, const QString& phoneCan)
{
    const auto isOne = [](const QString& capability, const char* one, const char* other) {
        return capability == QLatin1String(one) || capability == QLatin1String(other);
    };
    const bool deviceAsks = isOne(deviceCan, "KeyboardOnly", "KeyboardDisplay");
    const bool phoneAsks = isOne(phoneCan, "KeyboardOnly", "KeyboardDisplay");
    const bool deviceConfirms = isOne(deviceCan, "DisplayYesNo", "KeyboardDisplay");
    const bool phoneConfirms = isOne(phoneCan, "DisplayYesNo", "KeyboardDisplay");
    const QLatin1String nothing("NoInputNoOutput");
    if (deviceCan == nothing || phoneCan == nothing) {
        return JustWorks;
    }
    if (deviceConfirms && phoneConfirms) {
        return Comparison;
    }
    if (deviceAsks) {
        return deviceCan == QLatin1String("KeyboardDisplay") && phoneCan == QLatin1String("KeyboardOnly")
                   ? DeviceShows
                   : PhoneShows;
    }
    return phoneAsks ? DeviceShows : JustWorks;
}

void Pairing::ask(Method method)
{
    m_method = method;
    m_passkey = QRandomGenerator::global()->bounded(passkeys);
    switch (method) {
    case JustWorks:
        call(QStringLiteral("RequestAuthorization"), {}, true);
        break;
    case Comparison:
        m_shown = digits(m_passkey);
        call(QStringLiteral("RequestConfirmation"), {m_passkey}, true);
        break;
    case DeviceShows:
        call(QStringLiteral("DisplayPasskey"), {m_passkey, QVariant::fromValue(ushort(0))}, false);
        break;
    case PhoneShows:
        m_shown = digits(m_passkey);
        call(QStringLiteral("RequestPasskey"), {}, true);
        break;
    }
}

void Pairing::call(const QString& member, const QVariantList& arguments, bool wantsReply)
{
    QDBusMessage message = QDBusMessage::createMethodCall(m_agent.sender, m_agent.path,
                                                          QStringLiteral("org.bluez.Agent1"), member);
    message.setArguments(QVariantList{QVariant::fromValue(QDBusObjectPath(m_phone->state().device()))} +
                         arguments);
    if (!wantsReply) {
        m_daemon->connection().send(message);
        return;
    }
    m_isAsking = true;
    auto* watcher = new QDBusPendingCallWatcher(m_daemon->connection().asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, watcher, &QObject::deleteLater);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this, attempt = m_attempt](QDBusPendingCallWatcher* finished) {
                onAnswer(finished->reply(), attempt);
            });
    QTimer::singleShot(m_daemon->state().agentPatienceMs, this, [this, attempt = m_attempt] {
        if (m_isAsking && attempt == m_attempt) {
            cancelQuestion();
            fail(QStringLiteral("the device did not answer"));
        }
    });
}

void Pairing::onAnswer(const QDBusMessage& answer, int attempt)
{
    if (attempt != m_attempt || !m_isAsking) {
        return;
    }
    m_isAsking = false;
    if (answer.type() != QDBusMessage::ReplyMessage) {
        fail(m_method == PhoneShows ? QStringLiteral("0x01 Passkey Entry Failed") : rejected);
    } else if (m_method == PhoneShows && answer.arguments().value(0) != QVariant(m_passkey)) {
        fail(wrongPasskey);
    } else {
        succeed();
    }
}

void Pairing::succeed()
{
    m_state = QStringLiteral("paired");
    m_phone->protect(m_method == JustWorks ? Protection::Encrypted : Protection::SecureConnections);
}

void Pairing::fail(const QString& reason)
{
    m_state = QStringLiteral("failed: ") + reason;
    m_phone->loseLink();
}

void Pairing::cancelQuestion()
{
    if (m_isAsking) {
        m_isAsking = false;
        m_daemon->connection().send(QDBusMessage::createMethodCall(
            m_agent.sender, m_agent.path, QStringLiteral("org.bluez.Agent1"), QStringLiteral("Cancel")));
    }
}

} // namespace simulator
