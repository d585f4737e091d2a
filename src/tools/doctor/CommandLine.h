#pragma once

#include <QString>
#include <QStringList>

namespace doctor {

/** The doctor's command line. */
struct CommandLine
{
    QString name;          // a bus name to try to own, or empty
    QString configuration; // a file to read in place of main.conf, or empty
    QString localName;     // what the program advertises, or empty
    bool advertises = false;
    bool serves = false;
    bool isJson = false;
    bool isVerbose = false;
    int trialMs = 10000;   // how long what is tried stays registered
    int timeoutMs = 10000; // how long to wait for each answer

    /**
     * Reads the program's arguments; returns an error text, or an empty one.
     * Prints the help text or the version and ends the program if the arguments ask for that.
     */
    QString parse(const QStringList& arguments);
};

} // namespace doctor
