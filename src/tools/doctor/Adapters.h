#pragma once

#include <QString>

class Report;
struct Daemon;

/** What the examination of the adapters brought to light, for the trials. */
struct Adapters
{
    /** One of BlueZ's two managers. */
    struct Manager
    {
        QString
            path; // the adapter's object path, with which the library registers; empty where there is none
        QString address;       // the adapter's Bluetooth address
        bool isUsable = false; // the adapter is switched on and can be a peripheral
    };

    /** Examines the adapters and the two managers, and reports. */
    static Adapters examine(const Daemon& daemon, Report& report);

    Manager gatt;
    Manager advertising;
};
