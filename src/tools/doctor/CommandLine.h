#pragma once

#include <QString>
#include <QStringList>

/** What the doctor is asked to do. */
struct CommandLine
{
    QString name; // a bus name to try to own, or empty
    bool advertises = false;
    bool serves = false;
    bool isJson = false;
    bool isVerbose = false;
    int trialMs = 10000;   // how long what is tried stays registered
    int timeoutMs = 10000; // how long any answer is waited for

    /**
     * Reads the program's arguments; returns what is wrong with them or an empty text.
     * Prints the help text or the version and ends the program when that is asked for.
     */
    QString parse(const QStringList& arguments);
};
