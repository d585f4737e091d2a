#pragma once

#include <QString>

class Report;
struct Daemon;

/** What the examination of the adapters brought to light, for the trials. */
struct Adapters
{
    /** Examines the adapters and the two managers, and reports. */
    static Adapters examine(const Daemon& daemon, Report& report);

    QString gattManager;        // the object path that the library registers applications with, or empty
    QString advertisingManager; // the same for advertisements
    QString gattAddress;        // the Bluetooth addresses of both
    QString advertisingAddress;
};
