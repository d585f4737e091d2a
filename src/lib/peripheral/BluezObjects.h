#pragma once

#include "DBusTypes.h"

#include <QDBusError>
#include <QDBusServiceWatcher>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QTimer>
#include <QVariant>
#include <QVariantMap>

#include <functional>
#include <memory>

class QDBusMessage;

namespace plim {
namespace detail {

/**
 * A copy of BlueZ's objects and their properties, kept up to date without ever waiting for BlueZ. It follows
 * the owner of the bus name: after a restart it reads everything again. It hears the owner only; signals of
 * others are ignored.
 *
 * Slots and callbacks may do anything, also release the last reference. In a nested event loop, later changes
 * arrive in their order. Internal: not installed.
 */
class BluezObjects : public QObject, public std::enable_shared_from_this<BluezObjects>
{
    Q_OBJECT

public:
    /** The one of this thread; it ends with the event loop's next turn once nobody holds it. A new one knows
     * nothing until the event loop has run. */
    static std::shared_ptr<BluezObjects> shared();
    ~BluezObjects() override;

    /** Whether BlueZ runs and has described its objects. Between started() and ended(). */
    bool isStarted() const { return m_isStarted; }

    /** Whether BlueZ has yet to be looked for, or to describe its objects. */
    bool isStarting() const { return !m_isOwnerKnown || (!m_owner.isEmpty() && !m_isStarted); }

    /** Whether this is BlueZ's unique bus name now. To be asked of the sender of a call that only BlueZ may
     * make. */
    bool isBluez(const QString& busName) const { return !m_owner.isEmpty() && busName == m_owner; }

    /** The paths of the objects with this interface, in ascending order. */
    QStringList paths(const QString& interface) const;
    /** Whether there is such an object. */
    bool contains(const QString& path, const QString& interface) const;
    /** The properties of an object; empty where there is none. */
    QVariantMap properties(const QString& path, const QString& interface) const;
    /** One property; invalid where there is none. Types that Qt does not know are a QDBusArgument. */
    QVariant value(const QString& path, const QString& interface, const QString& name) const;

    /**
     * Calls the function as soon as BlueZ has described its objects, or is found not to run, or does not name
     * them: at once unless isStarting(). It is called before started().
     * @param context  the function is not called once this has ended; not null
     */
    void whenLooked(QObject* context, const std::function<void()>& function);

    /** What is called with the end of a call: an invalid error for a success. */
    using Finished = std::function<void(const QDBusError& error)>;

    /**
     * Calls a method. Arguments that D-Bus cannot carry give the error InvalidArgs, and while BlueZ does not
     * run the error is ServiceUnknown: a call never starts it. Before it is known whether BlueZ runs, the
     * call waits for that.
     * @param context   the callback is not called once this has ended; not null
     * @param finished  always called from the event loop; may be empty
     */
    void call(const QString& path, const QString& interface, const QString& method,
              const QVariantList& arguments, QObject* context, const Finished& finished);
    /** Sets a property with org.freedesktop.DBus.Properties.Set; otherwise like call(). The new value stands
     * here when BlueZ announces it. */
    void set(const QString& path, const QString& interface, const QString& name, const QVariant& value,
             QObject* context, const Finished& finished);

signals:
    /** There is a new object, or an object has a new interface. Its properties are known. Objects come before
     * those below them when they are read at the start. */
    void objectAdded(const QString& path, const QString& interface);
    /** An interface has gone, and its properties with it. At BlueZ's end this is sent for all objects, those
     * below others first, before ended(). */
    void objectRemoved(const QString& path, const QString& interface);
    /** A device has disconnected. Comes before propertiesChanged(), whose slots may run an event loop: it is
     * for what has to know at once, and its slots run no code of the program. */
    void deviceDisconnected(const QString& path);
    /** @param names  the properties that BlueZ has set or withdrawn */
    void propertiesChanged(const QString& path, const QString& interface, const QStringList& names);
    /** Why a link has ended: "org.bluez.Reason.Remote", for instance. Only BlueZ from 5.83 on tells it, just
     * before the property Connected changes. */
    void linkEnded(const QString& path, const QString& reason);
    /** BlueZ runs, and all its objects have been announced. */
    void started();
    /** BlueZ ended, whether it had started() or not. */
    void ended();

private slots:
    void on_ownerChanged(const QString& name, const QString& oldOwner, const QString& newOwner);
    void on_signal(const QDBusMessage& signal);

private:
    using Object = QPair<QString, QString>; ///< path and interface
    using Change = std::function<void()>;

    BluezObjects();

    void askForOwner();
    void setOwner(const QString& owner);
    void listen(bool on);
    void describe();
    void on_described(const QDBusMessage& reply);
    QList<Change> changesOf(const QDBusMessage& signal);
    QList<Change> removalsOf(const QString& path, const QStringList& interfaces);
    QList<Change> additionsOf(const QString& path, const DBusInterfaceList& interfaces);
    void start(quint64 life);
    void goOn();
    void work();
    void add(const Object& object, const QVariantMap& properties);
    void remove(const Object& object);
    void change(const Object& object, const QVariantMap& changed, const QStringList& invalidated);
    void tellChange(const Object& object, const QStringList& names);
    void removeAll();

    QDBusServiceWatcher m_name;
    bool m_isOwnerKnown = false;
    QString m_owner;
    quint64 m_life =
        0; ///< counts the owners, so that an answer of an earlier one is not taken for this one's
    bool m_isDescribed = false; ///< whether the owner has answered, be it with an error
    bool m_isStarted = false;
    QTimer m_askAgain;
    QList<Change> m_early;   ///< arrived while BlueZ was asked for its objects
    QList<Change> m_changes; ///< to be applied now; each runs code of the program once at most
    QList<Change> m_waiting; ///< to be called when BlueZ has been looked for
    QMap<Object, QVariantMap> m_objects;
};

} // namespace detail
} // namespace plim
