#pragma once

#include "Eventually.h"
#include "PlimBleTest.h"
#include "RawPeripheral.h"

#include <memory>

/** What the tests of the stand-in daemon's phones begin with: the daemon, and a program without the library.
 */
class SimulatorPhones
{
protected:
    void begin()
    {
        m_ble = std::make_unique<PlimBleTest>();
        m_raw = std::make_unique<RawPeripheral>();
    }
    void end()
    {
        m_raw.reset();
        m_ble.reset();
    }

    /** Registers a characteristic with these flags. */
    void start(const QStringList& flags, const QVariantMap& more = {})
    {
        m_raw->add(characteristic, flags, more);
        QCOMPARE(m_raw->registerApplication(), QString());
        m_raw->takeMembers();
    }

    /** Calls a method of a phone's control object; the answer may be any error. */
    static QDBusMessage tell(const PlimBleTest::Phone& phone, const QString& method,
                             const QVariantList& arguments)
    {
        QDBusMessage call = QDBusMessage::createMethodCall(
            "org.plim.BluezSimulator",
            QString(phone.device()).replace("/org/bluez", "/org/plim/BluezSimulator"), phoneInterface,
            method);
        call.setArguments(arguments);
        return PlimBleTestDetail::callWithEventLoop(QDBusConnection::systemBus(), call);
    }

    static QString errorOf(const QDBusMessage& answer)
    {
        return answer.errorName().section('.', -1) + ": " + answer.errorMessage();
    }

    static QVariant asPath(const QString& path) { return QVariant::fromValue(QDBusObjectPath(path)); }

    const QString characteristic = "/app/s/c";
    static constexpr const char* phoneInterface = "org.plim.BluezSimulator1.Phone";
    std::unique_ptr<PlimBleTest> m_ble;
    std::unique_ptr<RawPeripheral> m_raw;
};
