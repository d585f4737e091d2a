#pragma once

#include "Literals.h"

#include <QJsonObject>
#include <QList>
#include <QProcess>
#include <QString>
#include <QStringList>

/** plim-ble-doctor as a child process that prints JSON. */
class Doctor
{
public:
    struct Finding
    {
        QString severity;
        QString text;
        QString remedy;
        QJsonObject values;
    };

    /** What it has printed when it ended. */
    struct Result
    {
        int exitCode = -1; // -1 when it crashed or had to be killed
        QStringList names; // of the findings, in order
        QList<Finding> findings;
        QString output;
        QString errors;

        /** The finding of that name, with its severity empty where there is none; the first of several. */
        Finding finding(const QString& name) const { return findings.value(names.indexOf(name)); }
        /** "severity text | remedy" of that finding, or everything that was found in its place. */
        QString line(const QString& name) const;
    };

    /** Starts it. address is the bus's; wrapper a command in front of it. */
    explicit Doctor(const QStringList& arguments,
                    const QString& address = qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS"),
                    const QStringList& wrapper = {});
    ~Doctor();
    Q_DISABLE_COPY(Doctor)

    /** Waits, with the event loop running, for it to end. */
    Result result();
    /** Waits for it to end, and takes its output as it is. */
    Result plainResult();

    /** Ends its trial before the time, as Ctrl+C does. */
    void interrupt() { m_process.terminate(); }

    /** What it has written to standard error so far. */
    QString errors();

    /** Runs it with JSON. */
    static Result examine(const QStringList& arguments = {},
                          const QString& address = qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS"));

private:
    QProcess m_process;
    QString m_errors;
};
