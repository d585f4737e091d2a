#pragma once

#include "AdvertisementJudge.h"

#include <QString>
#include <QStringList>

namespace simulator {

/** The simulator's command line. */
struct CommandLine
{
    QString address; // of the bus, or "system" or "session"
    QStringList adapters;
    BluezVersion version = BluezVersion::Bluez582;
    bool isAbsent = false;
    bool acceptsEverything = false;
    bool isVerbose = false;

    /**
     * Reads the program's arguments; returns an error text, or an empty one.
     * Prints the help text and ends the program if the arguments ask for that.
     */
    QString parse(const QStringList& arguments);
};

} // namespace simulator
