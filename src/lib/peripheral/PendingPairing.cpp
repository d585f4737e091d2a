#include "PendingPairing.h"

#include "BluezInterfaces.h"
#include "plimlog.h"

#include <algorithm>

namespace {

/** What BlueZ takes as a PIN. */
constexpr int longestPin = 16;
/** Digits of the largest passkey. */
constexpr int passkeyDigits = 6;

bool isPasskey(const QString& text)
{
    return !text.isEmpty() && text.size() <= passkeyDigits &&
           std::all_of(text.begin(), text.end(),
                       [](QChar digit) { return digit >= QLatin1Char('0') && digit <= QLatin1Char('9'); });
}

bool isPin(const QString& text)
{
    const auto length = text.toUtf8().size();
    return length > 0 && length <= longestPin;
}

} // namespace

plim::detail::PendingPairing::PendingPairing(const QDBusMessage& call, const QDBusConnection& connection,
                                             const Question& question)
    : m_call(call), m_connection(connection), m_question(question)
{
}

plim::detail::PendingPairing::~PendingPairing()
{
    if (m_question.kind != PairingRequest::ShowPasskey && !isAnswered()) {
        PLIM_LOG(bleLogger(), WARN, Q_FUNC_INFO,
                 "Pairing request of " << m_question.central.path() << " dropped without an answer");
        reject();
    }
}

void plim::detail::PendingPairing::accept()
{
    const bool isYesOrNo =
        m_question.kind != PairingRequest::ShowPasskey && m_question.kind != PairingRequest::EnterPasskey;
    if (isYesOrNo && claim()) {
        send(m_call.createReply());
    }
}

bool plim::detail::PendingPairing::accept(const QString& passkey)
{
    const bool isValid = m_question.wantsPin ? isPin(passkey) : isPasskey(passkey);
    if (m_question.kind != PairingRequest::EnterPasskey || !isValid) {
        return false;
    }
    if (claim()) {
        send(m_call.createReply(m_question.wantsPin ? QVariant(passkey) : QVariant(passkey.toUInt())));
    }
    return true;
}

void plim::detail::PendingPairing::reject()
{
    if (!claim()) {
        return;
    }
    send(m_call.createErrorReply(QStringLiteral("org.bluez.Error.Rejected"), QStringLiteral("Rejected")));
    if (m_question.kind == PairingRequest::ShowPasskey) {
        // BlueZ does not wait for an answer: only the end of the link ends the pairing.
        QDBusMessage disconnect =
            QDBusMessage::createMethodCall(m_call.service(), m_question.central.path(),
                                           BluezInterfaces::Device, QStringLiteral("Disconnect"));
        disconnect.setAutoStartService(false);
        m_connection.send(disconnect);
    }
}

bool plim::detail::PendingPairing::end()
{
    if (!claim()) {
        return false;
    }
    send(m_call.createErrorReply(QStringLiteral("org.bluez.Error.Canceled"), QStringLiteral("Canceled")));
    return true;
}

/** Whoever shows a passkey has been answered at once. */
void plim::detail::PendingPairing::send(const QDBusMessage& answer)
{
    if (m_question.kind != PairingRequest::ShowPasskey && m_call.isReplyRequired()) {
        m_connection.send(answer);
    }
}
