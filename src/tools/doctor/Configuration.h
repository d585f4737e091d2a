#pragma once

#include <QMap>
#include <QString>

namespace doctor {

class Report;
struct CommandLine;
struct Daemon;

/** The configuration file of bluetoothd, main.conf, and what of it gets in the way of a peripheral. */
class Configuration
{
public:
    /** Reports on the file of the command line; without one, on the usual file if the daemon is bluetoothd.
     */
    static void examine(const CommandLine& options, const Daemon& daemon, Report& report);

private:
    bool read(const QString& path);
    QString value(const char* group, const char* key, const char* byDefault) const;
    void examineClient(Report& report) const;
    void examineRepairing(Report& report) const;
    void examinePrivacy(Report& report) const;

    QMap<QString, QString> m_values; // by "Group/Key"
};

} // namespace doctor
