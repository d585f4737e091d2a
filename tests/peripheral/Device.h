#pragma once

#include "BleManager.h"
#include "Eventually.h"
#include "GattApplication.h"
#include "PlimBleTest.h"

#include <plim/peripheral.h>

/** An application with one service. Once ready() returns, the stand-in daemon has registered it. */
struct Device
{
    GattApplication app{nullptr, "/com/example/tested", "com.example.Tested"};
    plim::Service* service = plim::Service::create(&app, "c0de0001-5f2a-4d6b-9a57-1f6d0a3b0000");

    plim::Characteristic* add(const plim::Access& access, const QString& pathElement = QString())
    {
        return plim::Characteristic::create(service, "c0de0002-5f2a-4d6b-9a57-1f6d0a3b0000", access,
                                            pathElement);
    }

    /** Hands it over. When this returns, the library also knows the daemon's objects, which it asks for on
     * its own: they tell the daemon's version and the phones. */
    bool ready(const PlimBleTest& ble)
    {
        BleManager::instance()->add(&app);
        const plim::Adapter adapter; // shares what is known of the daemon with all objects of this thread
        return QTest::qWaitFor(
            [&] { return adapter.isPresent() && ble.applications() == QStringList(app.dbusPath()); }, 20000);
    }
};
