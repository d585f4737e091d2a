#pragma once

#include "AdvertisementJudge.h"

#include <QString>
#include <QStringList>

/** What the program is asked to do when it is started. */
struct CommandLine
{
    QString address; // of the bus, or "system" or "session"
    QStringList adapters;
    BluezVersion version = BluezVersion::Bluez582;
    bool isAbsent = false;
    bool acceptsEverything = false;
    bool isVerbose = false;

    /**
     * Reads the program's arguments; returns what is wrong with them or an empty text.
     * Prints the help text and ends the program when that is asked for.
     */
    QString parse(const QStringList& arguments);
};
