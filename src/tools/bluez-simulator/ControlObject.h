#pragma once

#include "ControlBase.h"
#include "ControlTypes.h"

#include <QDBusObjectPath>
#include <QDBusVariant>

namespace simulator {

class Phone;
struct Registration;

/** The D-Bus interface that drives the simulator; README.md describes each method and signal. */
class ControlObject : public ControlBase
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.plim.BluezSimulator1")

public:
    explicit ControlObject(Simulator& simulator);

public slots:
    void Vanish();
    void Appear();
    void Restart();
    void Quit();

    void AddAdapter(const QString& name);
    void AddAdapterAt(const QString& name, const QString& address);
    void RemoveAdapter(const QString& name);
    void Announce(const QDBusObjectPath& path, const QStringList& interfaces);
    void Withdraw(const QDBusObjectPath& path, const QStringList& interfaces);
    void SetProperty(const QDBusObjectPath& path, const QString& interface, const QString& name,
                     const QDBusVariant& value);
    void SetAnswer(const QString& member, const QString& mode, const QString& errorName,
                   const QString& errorMessage, uint delayMs);
    void SetAcceptEverything(bool accept);
    void SetAgentPatience(uint milliseconds);

    QList<QVariantMap> Calls();
    void ClearCalls();
    QList<ObjectReference> Applications();
    QList<ObjectReference> Advertisements();
    QList<ObjectReference> OnAir();
    DBusManagedObjectList Tree(const QDBusObjectPath& application);
    QVariantMap Advertisement(const QDBusObjectPath& path);
    StringMap AdvertisementSignatures(const QDBusObjectPath& path);
    void ReleaseAdvertisement(const QDBusObjectPath& path);

    QByteArray Read(const QDBusObjectPath& path, ushort offset);
    QByteArray ReadLong(const QDBusObjectPath& path);
    QList<QByteArray> ReadPages(const QDBusObjectPath& data, const QDBusObjectPath& control);
    void Write(const QDBusObjectPath& path, const QByteArray& value, ushort offset);
    void Subscribe(const QDBusObjectPath& path);
    void Unsubscribe(const QDBusObjectPath& path);
    QList<QByteArray> Notifications(const QDBusObjectPath& path);
    void ClearNotifications();

    QDBusObjectPath AddPhone(const QString& adapter, const QString& address);

signals:
    void Registered(const QString& kind, const QDBusObjectPath& path);
    void Refused(const QString& kind, const QDBusObjectPath& path, const QString& errorName,
                 const QString& errorMessage);
    void Unregistered(const QString& kind, const QDBusObjectPath& path);
    void Notified(const QDBusObjectPath& path, const QByteArray& value);
    void CallReceived(const QString& member, const QString& path);

private:
    std::function<void(const QString&)> answerWhenDone();
    Phone* presentPhone();
    Registration find(const QList<Registration>& registrations, const QString& kind,
                      const QDBusObjectPath& path);
};

} // namespace simulator
