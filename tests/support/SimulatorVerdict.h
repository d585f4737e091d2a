#pragma once

#include "SimulatorScenario.h"

#include <QDBusPendingCall>

/** Calls of the daemon's managers without the library's manager in between. */
namespace Scenario {

inline const QString adapter = QStringLiteral("/org/bluez/hci0");

inline QVariant asPath(const QString& path)
{
    return QVariant::fromValue(QDBusObjectPath(path));
}

/** Calls a manager while this process answers the daemon's questions; "accepted", or the error and its text.
 */
inline QString verdict(const QString& manager, const QString& member, const QVariantList& arguments,
                       const QString& at = adapter, const QDBusConnection& bus = QDBusConnection::systemBus())
{
    QDBusMessage call = QDBusMessage::createMethodCall("org.bluez", at, manager, member);
    call.setArguments(arguments);
    const QDBusPendingCall pending = bus.asyncCall(call);
    if (!QTest::qWaitFor([&pending] { return pending.isFinished(); }, 20000)) {
        return "no answer";
    }
    return pending.isError() ? pending.error().name() + ": " + pending.error().message()
                             : QString("accepted");
}

inline QString registerApplication(const QString& path, const QString& at = adapter)
{
    return verdict(gattManager, "RegisterApplication", {asPath(path), QVariantMap()}, at);
}

inline QString registerAdvertisement(const QString& path)
{
    return verdict(advertisingManager, "RegisterAdvertisement", {asPath(path), QVariantMap()});
}

} // namespace Scenario
