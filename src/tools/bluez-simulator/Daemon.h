#pragma once

#include "Attribute.h"
#include "ObjectTree.h"
#include "Refusal.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QDBusVirtualObject>
#include <QMap>

namespace simulator {

class AdvertisingManager;
class AgentManager;
class AttPhone;
class ClientSockets;
class GattManager;
class Phone;
class RegistrationManager;
struct PhoneState;
struct Registration;
struct State;

/** One life of the Bluetooth daemon on the bus: created when it appears, deleted when it vanishes. */
class Daemon : public QDBusVirtualObject
{
    Q_OBJECT

public:
    /** Serves org.bluez on its own connection, but does not take the name yet. */
    Daemon(const QDBusConnection& connection, State& state, QObject* parent);
    ~Daemon() override;

    /** Takes the name; false when another program has it. */
    bool takeName();

    /** Adds interfaces to a path and announces them; managers among them are served from now on. */
    void announce(const QString& path, const QStringList& interfaces);

    /** Adds an object with one interface and these properties, and announces it. */
    void announceObject(const QString& path, const QString& interface, const QVariantMap& properties);

    /** Removes interfaces from a path and announces that; registrations with managers among them are
     * dropped. */
    void withdraw(const QString& path, const QStringList& interfaces);

    /** @param address  empty for the one that belongs to the name */
    void addAdapter(const QString& name, const QString& address);
    void removeAdapter(const QString& name);

    const ObjectTree& tree() const { return m_tree; }
    AgentManager& agents() const { return *m_agents; }
    /** The sockets that clients have given. */
    ClientSockets& sockets() const { return *m_sockets; }

    QDBusConnection connection() const { return m_connection; }
    State& state() const { return m_state; }
    Phone& phone() const { return *m_phone; }

    /** Lets a further phone connect. @param state  outlives the daemon */
    void addPhone(PhoneState& state);
    /** The phone with this device, which has been added. */
    AttPhone& attPhone(const QString& device) const { return *m_attPhones.value(device); }

    /** The characteristic or descriptor at a path in what is registered, with one adapter or any. */
    Attribute attribute(const QString& path, const QString& adapter = QString()) const;
    /** Whether a phone is subscribed to the characteristic. */
    bool hasSubscriber(const QString& path) const;
    /** Ends the subscriptions to an application that is gone. */
    void dropSubscriptions(const Registration& application);

    /** The registrations of all GATT managers, without those still being read. */
    QList<Registration> applications() const;
    /** The registrations of all advertising managers, without those still being read. */
    QList<Registration> advertisements() const;

    /** Ends an advertisement from the daemon's side; false when there is none at that path. */
    bool releaseAdvertisement(const QString& path);

    /** Makes sure to notice when a client leaves the bus. */
    void watchClient(const QString& sender) { m_clients.addWatchedService(sender); }

    /** Answers a call, at once or late, as SetAnswer says. */
    void answer(const QDBusMessage& call, const QVariantList& values);
    void refuse(const QDBusMessage& call, const Refusal& refusal);

    /** A property of the daemon's own objects; invalid if there is none. */
    QVariant property(const QString& path, const QString& interface, const QString& name) const;

    /** Sets a property of the daemon's own objects and announces it; false when there is no such interface at
     * the path. */
    bool changeProperty(const QString& path, const QString& interface, const QString& name,
                        const QVariant& value);
    /** The same of several properties, in one signal. */
    bool changeProperties(const QString& path, const QString& interface, const QVariantMap& values);

    QString introspect(const QString& path) const override;
    bool handleMessage(const QDBusMessage& call, const QDBusConnection& connection) override;

signals:
    void registered(const QString& kind, const QString& path);
    void refused(const QString& kind, const QString& path, const QString& errorName,
                 const QString& errorMessage);
    void unregistered(const QString& kind, const QString& path);
    void phoneNotified(const QString& device, const QString& path, const QByteArray& value);

private slots:
    void onClientVanished(const QString& sender);
    void onPropertiesChanged(const QDBusMessage& signal);

private:
    void send(const QDBusMessage& call, const QDBusMessage& reply);
    void sendInterfacesAdded(const QString& path, const DBusInterfaceList& added);
    void dispatch(const QDBusMessage& call);
    bool handleManagerCall(const QDBusMessage& call);
    void serve(RegistrationManager* manager);

    QDBusConnection m_connection;
    State& m_state;
    Phone* m_phone = nullptr;
    AgentManager* m_agents = nullptr;
    ClientSockets* m_sockets = nullptr;
    QMap<QString, AttPhone*> m_attPhones; // by their devices
    ObjectTree m_tree;
    QMap<QString, GattManager*> m_gattManagers;               // by path
    QMap<QString, AdvertisingManager*> m_advertisingManagers; // by path
    QDBusServiceWatcher m_clients;
};

} // namespace simulator
