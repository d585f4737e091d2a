#include "BluezObjects.h"

#include "BluezInterfaces.h"
#include "DBusBluez.h"
#include "DBusDetail.h"
#include "plim.h"
#include "plimlog.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QPointer>

#include <algorithm>
#include <utility>

namespace {

const log4cplus::Logger& logger = plim::bleLogger();

constexpr int askAgainMs = 5000;

const QString objectManager = QStringLiteral("org.freedesktop.DBus.ObjectManager");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString addition = QStringLiteral("InterfacesAdded");
const QString removal = QStringLiteral("InterfacesRemoved");
const QString newValues = QStringLiteral("PropertiesChanged");
const QString endOfLink = QStringLiteral("Disconnected");

} // namespace

std::shared_ptr<plim::detail::BluezObjects> plim::detail::BluezObjects::shared()
{
    thread_local std::weak_ptr<BluezObjects> current;
    std::shared_ptr<BluezObjects> objects = current.lock();
    if (!objects) {
        // Its own slots may release the last reference; so may another thread.
        objects.reset(new BluezObjects, [](BluezObjects* released) { released->deleteLater(); });
        current = objects;
    }
    return objects;
}

plim::detail::BluezObjects::BluezObjects()
    : m_name(DBusBluezServiceName(), QDBusConnection::systemBus(), QDBusServiceWatcher::WatchForOwnerChange)
{
    registerDBusTypes();
    m_askAgain.setSingleShot(true);
    m_askAgain.setInterval(askAgainMs);
    plim::connect(&m_askAgain, &QTimer::timeout, this, &BluezObjects::describe);
    // Listen before asking, or an owner that appears in between is lost.
    plim::connect(&m_name, &QDBusServiceWatcher::serviceOwnerChanged, this, &BluezObjects::on_ownerChanged);
    askForOwner();
}

plim::detail::BluezObjects::~BluezObjects() = default;

QStringList plim::detail::BluezObjects::paths(const QString& interface) const
{
    QStringList found;
    for (auto object = m_objects.cbegin(); object != m_objects.cend(); ++object) {
        if (object.key().second == interface) {
            found << object.key().first;
        }
    }
    return found;
}

bool plim::detail::BluezObjects::contains(const QString& path, const QString& interface) const
{
    return m_objects.contains({path, interface});
}

QVariantMap plim::detail::BluezObjects::properties(const QString& path, const QString& interface) const
{
    return m_objects.value({path, interface});
}

QVariant plim::detail::BluezObjects::value(const QString& path, const QString& interface,
                                           const QString& name) const
{
    return properties(path, interface).value(name);
}

void plim::detail::BluezObjects::whenLooked(QObject* context, const std::function<void()>& function)
{
    if (!isStarting()) {
        function();
        return;
    }
    m_waiting << [alive = QPointer<QObject>(context), function] { alive ? function() : void(); };
}

void plim::detail::BluezObjects::call(const QString& path, const QString& interface, const QString& method,
                                      const QVariantList& arguments, QObject* context,
                                      const Finished& finished)
{
    const auto fail = [=](QDBusError::ErrorType type, const char* text) {
        if (finished) {
            const QDBusError error(type, QLatin1String(text));
            QTimer::singleShot(0, context, [finished, error] { finished(error); });
        }
    };
    if (!m_isOwnerKnown) {
        whenLooked(context, [=] { call(path, interface, method, arguments, context, finished); });
        return;
    }
    if (m_owner.isEmpty()) {
        fail(QDBusError::ServiceUnknown, "BlueZ is not running");
        return;
    }
    // The unique name: with the well-known one, the bus would start BlueZ.
    QDBusMessage message = QDBusMessage::createMethodCall(m_owner, path, interface, method);
    for (const QVariant& argument : arguments) {
        const QVariant sendable = DBusDetail::marshallable(argument);
        if (!sendable.isValid()) {
            fail(QDBusError::InvalidArgs, "A value that D-Bus cannot carry");
            return;
        }
        message << sendable;
    }
    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::systemBus().asyncCall(message), context);
    plim::connect(watcher, &QDBusPendingCallWatcher::finished, context,
                  [finished](QDBusPendingCallWatcher* answered) {
                      answered->deleteLater();
                      if (finished) {
                          finished(answered->error());
                      }
                  });
}

void plim::detail::BluezObjects::set(const QString& path, const QString& interface, const QString& name,
                                     const QVariant& value, QObject* context, const Finished& finished)
{
    // An invalid variant inside the QDBusVariant would pass for something that can be sent.
    const QVariant argument = value.isValid() ? QVariant::fromValue(QDBusVariant(value)) : QVariant();
    call(path, propertiesInterface, QStringLiteral("Set"), {interface, name, argument}, context, finished);
}

void plim::detail::BluezObjects::askForOwner()
{
    QDBusMessage question = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetNameOwner"));
    question << DBusBluezServiceName();
    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::systemBus().asyncCall(question), this);
    plim::connect(
        watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* answered) {
            answered->deleteLater();
            // A change that has been heard of is at least as new as this answer.
            if (!m_isOwnerKnown) {
                setOwner(answered->isError() ? QString() : answered->reply().arguments().value(0).toString());
            }
        });
}

void plim::detail::BluezObjects::on_ownerChanged(const QString& /*name*/, const QString& /*oldOwner*/,
                                                 const QString& newOwner)
{
    setOwner(newOwner);
}

void plim::detail::BluezObjects::setOwner(const QString& owner)
{
    const bool isFirst = !std::exchange(m_isOwnerKnown, true);
    if (owner == m_owner && !isFirst) {
        return;
    }
    if (!m_owner.isEmpty()) {
        listen(false);
        m_askAgain.stop();
        m_early.clear();
        m_isStarted = false;
        m_changes << [this] { removeAll(); };
    }
    ++m_life;
    m_owner = owner;
    if (!m_owner.isEmpty()) {
        // Listen before asking, or what changes in between is lost.
        listen(true);
        describe();
    } else {
        m_changes << [this] { goOn(); };
    }
    work();
}

/** Starts or ends listening to the owner. By its unique name the bus itself keeps others' signals away, and
 * Qt drops none that come close behind the news of the owner. */
void plim::detail::BluezObjects::listen(bool on)
{
    const struct
    {
        QString path;
        QString interface;
        QString member;
        QString signature;
    } all[] = {{DBusBluezObjectManagerPath(), objectManager, addition, QStringLiteral("oa{sa{sv}}")},
               {DBusBluezObjectManagerPath(), objectManager, removal, QStringLiteral("oas")},
               {QString(), propertiesInterface, newValues, QStringLiteral("sa{sv}as")},
               {QString(), BluezInterfaces::Device, endOfLink, QStringLiteral("ss")}};
    QDBusConnection bus = QDBusConnection::systemBus();
    const char* slot = SLOT(on_signal(QDBusMessage));
    for (const auto& one : all) {
        const bool done =
            on ? bus.connect(m_owner, one.path, one.interface, one.member, {}, one.signature, this, slot)
               : bus.disconnect(m_owner, one.path, one.interface, one.member, {}, one.signature, this, slot);
        if (!done && bus.isConnected()) {
            PLIM_LOG(logger, ERROR, Q_FUNC_INFO, "Cannot listen to BlueZ's " << one.member);
        }
    }
}

void plim::detail::BluezObjects::describe()
{
    m_isDescribed = false;
    const QDBusMessage question = QDBusMessage::createMethodCall(
        m_owner, DBusBluezObjectManagerPath(), objectManager, QStringLiteral("GetManagedObjects"));
    auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::systemBus().asyncCall(question), this);
    plim::connect(watcher, &QDBusPendingCallWatcher::finished, this,
                  [this, life = m_life](QDBusPendingCallWatcher* answered) {
                      answered->deleteLater();
                      if (life == m_life) {
                          on_described(answered->reply());
                      }
                  });
}

void plim::detail::BluezObjects::on_described(const QDBusMessage& reply)
{
    m_isDescribed = true;
    if (reply.signature() == QLatin1String("a{oa{sa{sv}}}")) {
        const auto objects = qdbus_cast<DBusManagedObjectList>(reply.arguments().constFirst());
        for (auto object = objects.cbegin(); object != objects.cend(); ++object) {
            m_changes += additionsOf(object.key().path(), *object);
        }
        m_changes << [this, life = m_life] { start(life); };
    } else {
        PLIM_LOG(logger, WARN, Q_FUNC_INFO, "BlueZ does not name its objects: " << reply.errorMessage());
        m_askAgain.start();
        m_changes << [this] { goOn(); };
    }
    // Some of these may have been sent before the answer. Repeating them does no harm: for each object and
    // property the last word counts, and it is among them or in the answer.
    m_changes += std::exchange(m_early, {});
    work();
}

void plim::detail::BluezObjects::on_signal(const QDBusMessage& signal)
{
    // One of the last owner's may still have been on the way.
    if (signal.service() == m_owner) {
        (m_isDescribed ? m_changes : m_early) += changesOf(signal);
        work();
    }
}

QList<plim::detail::BluezObjects::Change> plim::detail::BluezObjects::changesOf(const QDBusMessage& signal)
{
    const QVariantList arguments = signal.arguments();
    const QString path = signal.path();
    if (signal.member() == newValues) {
        const Object object(path, arguments.at(0).toString());
        const auto changed = qdbus_cast<QVariantMap>(arguments.at(1));
        return {[=, invalidated = arguments.at(2).toStringList()] { change(object, changed, invalidated); }};
    }
    if (signal.member() == endOfLink) {
        return {[=, reason = arguments.at(0).toString()] { emit linkEnded(path, reason); }};
    }
    const QString subject = arguments.at(0).value<QDBusObjectPath>().path();
    return signal.member() == addition ? additionsOf(subject, qdbus_cast<DBusInterfaceList>(arguments.at(1)))
                                       : removalsOf(subject, arguments.at(1).toStringList());
}

QList<plim::detail::BluezObjects::Change>
plim::detail::BluezObjects::removalsOf(const QString& path, const QStringList& interfaces)
{
    QList<Change> changes;
    for (const QString& interface : interfaces) {
        changes << [this, object = Object(path, interface)] { remove(object); };
    }
    return changes;
}

QList<plim::detail::BluezObjects::Change>
plim::detail::BluezObjects::additionsOf(const QString& path, const DBusInterfaceList& interfaces)
{
    QList<Change> changes;
    for (auto interface = interfaces.cbegin(); interface != interfaces.cend(); ++interface) {
        changes << [this, object = Object(path, interface.key()), properties = *interface] {
            add(object, properties);
        };
    }
    return changes;
}

/** Applies the changes in their order. The event loop of a slot comes here again, and goes on. */
void plim::detail::BluezObjects::work()
{
    // A slot may let go of this object and run an event loop. It must not end there: the watcher of the name,
    // a member, may be what has led here.
    const std::shared_ptr<BluezObjects> alive = weak_from_this().lock();
    bool isPosted = false;
    while (!m_changes.isEmpty()) {
        const Change next = m_changes.takeFirst();
        if (!m_changes.isEmpty() && !isPosted) {
            isPosted = QMetaObject::invokeMethod(this, &BluezObjects::work, Qt::QueuedConnection);
        }
        next();
    }
}

void plim::detail::BluezObjects::start(quint64 life)
{
    if (life == m_life) {
        m_isStarted = true;
        m_waiting << [this, life] { life == m_life ? started() : void(); };
        goOn();
    }
}

/** What has waited is next. */
void plim::detail::BluezObjects::goOn()
{
    m_changes = std::exchange(m_waiting, {}) + m_changes;
}

void plim::detail::BluezObjects::add(const Object& object, const QVariantMap& properties)
{
    const auto known = m_objects.constFind(object);
    if (known == m_objects.cend()) {
        m_objects[object] = properties;
        emit objectAdded(object.first, object.second);
        return;
    }
    QStringList names;
    for (auto property = properties.cbegin(); property != properties.cend(); ++property) {
        if (known->value(property.key()) != *property) {
            names << property.key();
        }
    }
    for (auto property = known->cbegin(); property != known->cend(); ++property) {
        if (!properties.contains(property.key())) {
            names << property.key();
        }
    }
    m_objects[object] = properties;
    if (!names.isEmpty()) {
        tellChange(object, names);
    }
}

void plim::detail::BluezObjects::remove(const Object& object)
{
    if (m_objects.remove(object) != 0) {
        emit objectRemoved(object.first, object.second);
    }
}

void plim::detail::BluezObjects::change(const Object& object, const QVariantMap& changed,
                                        const QStringList& invalidated)
{
    const auto known = m_objects.find(object);
    if (known == m_objects.end()) {
        return; // BlueZ announces an object before it changes
    }
    for (auto property = changed.cbegin(); property != changed.cend(); ++property) {
        known->insert(property.key(), *property);
    }
    for (const QString& name : invalidated) {
        known->remove(name);
    }
    tellChange(object, changed.keys() + invalidated);
}

void plim::detail::BluezObjects::tellChange(const Object& object, const QStringList& names)
{
    const QString connected = QStringLiteral("Connected");
    if (object.second == BluezInterfaces::Device && names.contains(connected) &&
        !value(object.first, object.second, connected).toBool()) {
        emit deviceDisconnected(object.first);
    }
    emit propertiesChanged(object.first, object.second, names);
}

/** Puts the removal of what is known, and the end, before all other changes. */
void plim::detail::BluezObjects::removeAll()
{
    QList<Change> end;
    const QList<Object> objects = m_objects.keys();
    for (const Object& object : objects) {
        end.prepend([=] { remove(object); });
    }
    end << [this] { emit ended(); };
    m_changes = end + m_changes;
}
