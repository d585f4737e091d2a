#pragma once

#include "Attributes.h"
#include "Eventually.h"
#include "FakeBluez.h"
#include "Literals.h"

#include <QDBusConnectionInterface>
#include <QtTest>

#include <memory>
#include <utility>

namespace CentralsScenario {

inline const QString device = QStringLiteral("org.bluez.Device1");
inline const QString adapter = QStringLiteral("org.bluez.Adapter1");
inline const QString hci0 = QStringLiteral("/org/bluez/hci0");
inline const QString hci1 = QStringLiteral("/org/bluez/hci1");

/** What BlueZ shows of a phone. */
inline DBusInterfaceList phone(const QVariantMap& more = {}, const QString& adapterPath = hci0)
{
    QVariantMap properties{{"Adapter"_qs, QVariant::fromValue(QDBusObjectPath(adapterPath))},
                           {"Address"_qs, "00:AA:01:01:00:01"_qs},
                           {"AddressType"_qs, "random"_qs},
                           {"Connected"_qs, true},
                           {"Paired"_qs, false},
                           {"Bonded"_qs, false},
                           {"Trusted"_qs, false}};
    for (auto property = more.cbegin(); property != more.cend(); ++property) {
        properties.insert(property.key(), *property);
    }
    return {{device, properties}};
}

inline DBusInterfaceList adapterAt(const char* address)
{
    return {{adapter, {{"Address"_qs, QString::fromLatin1(address)}}}};
}

/** Writes down what is told, in its order. */
struct Record
{
    explicit Record(const plim::Centrals& centrals)
    {
        QObject::connect(&centrals, &plim::Centrals::centralConnected, &context,
                         [this](const plim::Central& central) { lines << "+ " + central.path(); });
        QObject::connect(&centrals, &plim::Centrals::centralChanged, &context,
                         [this](const plim::Central& central) { lines << "= " + central.path(); });
        QObject::connect(&centrals, &plim::Centrals::centralDisconnected, &context,
                         [this](const plim::Central& central, plim::Centrals::Reason reason) {
                             lines << "- " + central.path() + ' ' + QVariant::fromValue(reason).toString();
                         });
    }

    QObject context;
    QStringList lines;
};

/** What the tests of plim::Centrals begin with: a BlueZ that the test plays, and a list with what it tells.
 */
class ObservedCentrals
{
protected:
    void begin()
    {
        m_bluez = std::make_unique<FakeBluez>("fake"_qs);
        m_centrals = std::make_unique<plim::Centrals>();
        m_record = std::make_unique<Record>(*m_centrals);
    }
    void end()
    {
        m_record.reset();
        m_centrals.reset();
        m_bluez.reset();
        // The name has to be free for the next one.
        EVENTUALLY_VERIFY(
            !QDBusConnection::systemBus().interface()->isServiceRegistered("org.bluez"_qs).value());
    }

    void start()
    {
        m_bluez->objects.insert(QDBusObjectPath(hci0), adapterAt("00:AA:01:00:00:00"));
        m_bluez->objects.insert(QDBusObjectPath(hci1), adapterAt("00:AA:01:00:00:01"));
        appear();
    }
    void appear()
    {
        const int before = m_bluez->descriptions;
        QVERIFY(m_bluez->appear());
        EVENTUALLY_COMPARE(m_bluez->descriptions, before + 1);
    }
    /** Waits until what the daemon has said before is known. */
    void settle()
    {
        m_bluez->add("/marker"_qs, phone());
        EVENTUALLY_VERIFY(m_record->lines.contains("+ /marker"_qs));
        m_record->lines.removeAll("+ /marker"_qs);
        m_bluez->remove("/marker"_qs, {device});
        EVENTUALLY_VERIFY(m_record->lines.contains("- /marker Unknown"_qs));
        m_record->lines.removeAll("- /marker Unknown"_qs);
    }
    QStringList told()
    {
        settle();
        return std::exchange(m_record->lines, {});
    }

    std::unique_ptr<FakeBluez> m_bluez;
    std::unique_ptr<plim::Centrals> m_centrals;
    std::unique_ptr<Record> m_record;
};

} // namespace CentralsScenario
