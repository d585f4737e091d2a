#pragma once

#include "ControlBase.h"

#include <QByteArrayList>
#include <QDBusObjectPath>

namespace simulator {

class AttPhone;

/** The D-Bus interface that drives one further phone; README.md describes each method and signal. */
class PhoneControl : public ControlBase
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.plim.BluezSimulator1.Phone")
    Q_PROPERTY(QDBusObjectPath Device READ device CONSTANT)

public:
    /** @param device  the path of the daemon's object for the phone, which the simulator has */
    PhoneControl(Simulator& simulator, const QString& device, QObject* parent);

    QDBusObjectPath device() const { return QDBusObjectPath(m_device); }

public slots:
    void Connect();
    void Disconnect();
    void DisconnectFor(const QString& reason);
    void Forget();
    void SetProtection(const QString& level);
    void SetConfirming(bool confirms);
    void SetReading(bool reads);
    void Pair(const QString& capability);
    void CancelPairing();
    void TypePasskey(const QString& passkey);
    QString Pairing();
    QString Passkey();

    QByteArray Read(const QDBusObjectPath& path, ushort offset);
    void Write(const QDBusObjectPath& path, const QByteArray& value, ushort offset);
    void WriteWithoutResponse(const QDBusObjectPath& path, const QByteArray& value);
    void Subscribe(const QDBusObjectPath& path, const QString& kind);
    void Unsubscribe(const QDBusObjectPath& path);
    QList<QByteArray> Notifications(const QDBusObjectPath& path);

signals:
    void Notified(const QDBusObjectPath& path, const QByteArray& value);

private:
    AttPhone* presentPhone();

    QString m_device;
};

} // namespace simulator
