#include "Configuration.h"

#include "CommandLine.h"
#include "Daemon.h"
#include "Report.h"

#include <QFile>

namespace doctor {

namespace {

const QString usualPath = QStringLiteral("/etc/bluetooth/main.conf");

} // namespace

void Configuration::examine(const CommandLine& options, const Daemon& daemon, Report& report)
{
    if (options.configuration.isEmpty() && !daemon.isBluetoothd) {
        return;
    }
    const QString path = options.configuration.isEmpty() ? usualPath : options.configuration;
    const QVariantMap values{{"file", path}};
    Configuration configuration;
    if (configuration.read(path)) {
        report.ok("config.read", QString("The configuration of bluetoothd is %1.").arg(path), values);
    } else if (QFile::exists(path)) {
        report.warning("config.unreadable",
                       QString("This user may not read the configuration of bluetoothd, %1.").arg(path),
                       "Run this as root.", values);
        return;
    } else {
        report.ok("config.absent", QString("There is no %1: bluetoothd uses its defaults.").arg(path),
                  values);
    }
    configuration.examineClient(report);
    configuration.examineRepairing(report);
    configuration.examinePrivacy(report);
}

/** The format is that of GKeyFile: the last value of a key counts, a comment has a line of its own. */
bool Configuration::read(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return false;
    }
    QString group;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith('[') && line.endsWith(']')) {
            group = line.mid(1, line.size() - 2);
        } else if (!line.startsWith('#') && line.contains('=')) {
            m_values[group + '/' + line.section('=', 0, 0).trimmed()] = line.section('=', 1).trimmed();
        }
    }
    return true;
}

QString Configuration::value(const char* group, const char* key, const char* byDefault) const
{
    return m_values.value(QString("%1/%2").arg(group, key), byDefault);
}

void Configuration::examineClient(Report& report) const
{
    const QString reverse = value("General", "ReverseServiceDiscovery", "true");
    const QString client = value("GATT", "Client", "true");
    if (reverse != "false" && client != "false") {
        report.warning("config.client",
                       "bluetoothd reads the attributes of each phone that connects. Some phones then ask "
                       "their users to pair.",
                       "Write ReverseServiceDiscovery = false into the section [General].",
                       {{"ReverseServiceDiscovery", reverse}, {"Client", client}});
    }
}

void Configuration::examineRepairing(Report& report) const
{
    const QString repairing = value("General", "JustWorksRepairing", "never");
    if (repairing == "always") {
        report.warning("config.repairing-always",
                       "A phone that pairs without a comparison replaces an older bond, and no agent is "
                       "asked: so can anybody who pretends to be that phone.",
                       "Write JustWorksRepairing = confirm into the section [General].",
                       {{"JustWorksRepairing", repairing}});
    } else if (repairing != "confirm") {
        report.warning(
            "config.repairing-never",
            "A phone that has forgotten this device cannot pair with it again without a comparison, "
            "until this device has forgotten the phone.",
            "Write JustWorksRepairing = confirm into the section [General].",
            {{"JustWorksRepairing", repairing}});
    }
}

void Configuration::examinePrivacy(Report& report) const
{
    const QString privacy = value("General", "Privacy", "off");
    if (privacy != "off") {
        report.warning(
            "config.privacy",
            "The address of this device changes every few minutes. A phone that is not bonded takes "
            "it for a new device each time.",
            "Write Privacy = off into the section [General], unless the device must not be traced.",
            {{"Privacy", privacy}});
    }
}

} // namespace doctor
