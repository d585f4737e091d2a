#pragma once

#include "BluezObjects.h"
#include "Eventually.h"
#include "FakeBluez.h"
#include "Literals.h"

#include <QDBusConnectionInterface>
#include <QtTest>

#include <memory>
#include <utility>

namespace ObjectsScenario {

inline const QString adapter = QStringLiteral("/org/bluez/hci0");
inline const QString phone = QStringLiteral("/org/bluez/hci0/dev_1");
inline const QString adapterInterface = QStringLiteral("org.bluez.Adapter1");
inline const QString deviceInterface = QStringLiteral("org.bluez.Device1");
inline const QString alias = QStringLiteral("Alias");

inline QVariantMap named(const char* name)
{
    return {{alias, QString::fromLatin1(name)}};
}

/** Writes down what a mirror says, in its order. */
struct Record
{
    explicit Record(const plim::detail::BluezObjects& objects)
    {
        QObject::connect(&objects, &plim::detail::BluezObjects::objectAdded, &context,
                         [&](const auto& path, const auto& interface) {
                             lines << "+ " + path + ' ' + interface + ' ' +
                                          objects.value(path, interface, alias).toString();
                         });
        QObject::connect(
            &objects, &plim::detail::BluezObjects::objectRemoved, &context,
            [&](const auto& path, const auto& interface) { lines << "- " + path + ' ' + interface; });
        QObject::connect(&objects, &plim::detail::BluezObjects::propertiesChanged, &context,
                         [&](const auto& path, const auto& interface, const QStringList& names) {
                             lines << "= " + path + ' ' + names.join(',') + ' ' +
                                          objects.value(path, interface, alias).toString();
                         });
        QObject::connect(&objects, &plim::detail::BluezObjects::started, &context,
                         [&] { lines << "started"_qs; });
        QObject::connect(&objects, &plim::detail::BluezObjects::ended, &context,
                         [&] { lines << "ended"_qs; });
    }

    QStringList taken() { return std::exchange(lines, {}); }

    QObject context;
    QStringList lines;
};

/** What the tests of BlueZ's mirror begin with: a BlueZ that the test plays, and what the mirror says. */
class ObservedObjects
{
protected:
    void begin()
    {
        m_bluez = std::make_unique<FakeBluez>("fake"_qs);
        m_objects = plim::detail::BluezObjects::shared();
        m_record = std::make_unique<Record>(*m_objects);
    }
    void end()
    {
        m_record.reset();
        m_objects.reset();
        m_bluez.reset();
        // The name has to be free for the next one.
        EVENTUALLY_VERIFY(
            !QDBusConnection::systemBus().interface()->isServiceRegistered("org.bluez"_qs).value());
    }

    void startDaemon()
    {
        m_bluez->objects = {{QDBusObjectPath(adapter), {{adapterInterface, named("one")}}}};
        QVERIFY(m_bluez->appear());
        EVENTUALLY_VERIFY(m_objects->isStarted());
        m_record->taken();
    }

    std::unique_ptr<FakeBluez> m_bluez;
    std::shared_ptr<plim::detail::BluezObjects> m_objects;
    std::unique_ptr<Record> m_record;
};

} // namespace ObjectsScenario
