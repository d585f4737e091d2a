#pragma once

#include "BleManager.h"
#include "GattApplication.h"
#include "PlimBleTest.h"

#include <plim/peripheral.h>

/** An application with one service, which the stand-in daemon has registered once ready() returns. */
struct Device
{
    GattApplication app{nullptr, "/com/example/tested", "com.example.Tested"};
    plim::Service* service = plim::Service::create(&app, "c0de0001-5f2a-4d6b-9a57-1f6d0a3b0000");

    plim::Characteristic* add(const plim::Access& access, const QString& pathElement = QString())
    {
        return plim::Characteristic::create(service, "c0de0002-5f2a-4d6b-9a57-1f6d0a3b0000", access,
                                            pathElement);
    }

    /** Hands it over. */
    bool ready(const PlimBleTest& ble)
    {
        BleManager::instance()->add(&app);
        return QTest::qWaitFor([&] { return ble.applications() == QStringList(app.dbusPath()); }, 10000);
    }
};

#define EVENTUALLY_COMPARE(actual, expected) QTRY_COMPARE_WITH_TIMEOUT(actual, expected, 10000)
#define EVENTUALLY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, 10000)
