#include "PhoneControl.h"

#include "AttPhone.h"
#include "Daemon.h"
#include "Pairing.h"
#include "Simulator.h"

namespace simulator {

PhoneControl::PhoneControl(Simulator& simulator, const QString& device, QObject* parent)
    : ControlBase(simulator, parent), m_device(device)
{
    connect(&simulator, &Simulator::phoneNotified, this,
            [this](const QString& notified, const QString& path, const QByteArray& value) {
                if (notified == m_device) {
                    emit Notified(QDBusObjectPath(path), value);
                }
            });
}

void PhoneControl::Connect()
{
    if (AttPhone* phone = presentPhone()) {
        phone->connectLink();
    }
}

void PhoneControl::Disconnect()
{
    if (AttPhone* phone = presentPhone()) {
        phone->loseLink();
    }
}

void PhoneControl::DisconnectFor(const QString& reason)
{
    if (AttPhone* phone = presentPhone()) {
        phone->loseLink(reason);
    }
}

void PhoneControl::Forget()
{
    if (AttPhone* phone = presentPhone()) {
        phone->forget();
    }
}

void PhoneControl::SetProtection(const QString& level)
{
    const auto protection = protectionFromText(level);
    if (!protection) {
        require(
            QStringLiteral("\"%1\" is none of the levels open, encrypted, authenticated, secure-connections")
                .arg(level));
    } else if (AttPhone* phone = presentPhone()) {
        phone->protect(*protection);
    }
}

void PhoneControl::SetConfirming(bool confirms)
{
    if (AttPhone* phone = presentPhone()) {
        phone->setConfirming(confirms);
    }
}

void PhoneControl::SetReading(bool reads)
{
    if (AttPhone* phone = presentPhone()) {
        phone->setReading(reads);
    }
}

void PhoneControl::Pair(const QString& capability)
{
    if (AttPhone* phone = presentPhone()) {
        require(phone->pairing().start(capability));
    }
}

void PhoneControl::CancelPairing()
{
    if (AttPhone* phone = presentPhone()) {
        phone->pairing().cancel();
    }
}

void PhoneControl::TypePasskey(const QString& passkey)
{
    if (AttPhone* phone = presentPhone()) {
        require(phone->pairing().type(passkey));
    }
}

QString PhoneControl::Pairing()
{
    AttPhone* phone = presentPhone();
    return phone ? phone->pairing().state() : QString();
}

QString PhoneControl::Passkey()
{
    AttPhone* phone = presentPhone();
    return phone ? phone->pairing().shown() : QString();
}

QByteArray PhoneControl::Read(const QDBusObjectPath& path, ushort offset)
{
    if (AttPhone* phone = presentPhone()) {
        phone->read(path.path(), offset, later());
    }
    return QByteArray();
}

void PhoneControl::Write(const QDBusObjectPath& path, const QByteArray& value, ushort offset)
{
    if (AttPhone* phone = presentPhone()) {
        phone->write(path.path(), value, offset, later());
    }
}

void PhoneControl::WriteWithoutResponse(const QDBusObjectPath& path, const QByteArray& value)
{
    if (AttPhone* phone = presentPhone()) {
        phone->writeWithoutResponse(path.path(), value, later());
    }
}

void PhoneControl::Subscribe(const QDBusObjectPath& path, const QString& kind)
{
    const bool indications = kind == QLatin1String("indications");
    if (!indications && kind != QLatin1String("notifications")) {
        require(QStringLiteral("\"%1\" is neither notifications nor indications").arg(kind));
    } else if (AttPhone* phone = presentPhone()) {
        phone->subscribe(path.path(), indications, later());
    }
}

void PhoneControl::Unsubscribe(const QDBusObjectPath& path)
{
    if (AttPhone* phone = presentPhone()) {
        phone->unsubscribe(path.path(), later());
    }
}

QList<QByteArray> PhoneControl::Notifications(const QDBusObjectPath& path)
{
    return simulator().state().phones.at(m_device).notifications.value(path.path());
}

AttPhone* PhoneControl::presentPhone()
{
    Daemon* daemon = presentDaemon();
    return daemon ? &daemon->attPhone(m_device) : nullptr;
}

} // namespace simulator
