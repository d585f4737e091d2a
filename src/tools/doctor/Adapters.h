#pragma once

#include <QString>

namespace doctor {

class Report;
struct Daemon;

/** The adapters' managers, as found; the trials use them. */
struct Adapters
{
    /** One of BlueZ's two managers. */
    struct Manager
    {
        QString path; // the adapter's object path, which the library registers with; empty if there is none
        QString address;       // the adapter's Bluetooth address
        bool isUsable = false; // the adapter is switched on and can be a peripheral
    };

    /** Checks the adapters and the two managers, and reports.
     * @param localName  what the program advertises, or empty */
    static Adapters examine(const Daemon& daemon, const QString& localName, Report& report);

    Manager gatt;
    Manager advertising;
};

} // namespace doctor
