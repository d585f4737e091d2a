#pragma once

#include "BleManager.h"
#include "Eventually.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"
#include "LogCapture.h"
#include "Simulator.h"

#include <QDBusConnection>
#include <QStringList>
#include <QtTest>

#include <log4cplus/loglevel.h>

/** What the scenarios of the manager share. */
namespace Scenario {

inline const QString gattManager = QStringLiteral("org.bluez.GattManager1");
inline const QString advertisingManager = QStringLiteral("org.bluez.LEAdvertisingManager1");
inline const QStringList bothManagers{gattManager, advertisingManager};
inline const QStringList acceptEverything{QStringLiteral("--accept-everything")};

/** An application that the daemon accepts. */
class Application : public GattApplication
{
public:
    explicit Application(const QString& path)
        : GattApplication(nullptr, path,
                          QStringLiteral("org.plim.scenario") +
                              QString(path).replace(QLatin1Char('/'), QLatin1Char('.')))
    {
        createService(QStringLiteral("0000180f-0000-1000-8000-00805f9b34fb"), true);
    }

    void change() { emit applicationChanged(this); }
};

/** The lines that the manager wrote, in order, each after its level: "DEBUG Enter BleManager::add: /app". */
inline QStringList managerLines(const LogCapture& log)
{
    QStringList lines;
    for (const LogLine& line : log.lines()) {
        if (line.function.contains(QLatin1String("BleManager::"))) {
            const std::string level = log4cplus::getLogLevelManager().toString(line.level);
            lines << QString::fromStdString(level) + QLatin1Char(' ') + line.text;
        }
    }
    return lines;
}

/** The lines with which the manager reports how calls ended, without the entry lines. */
inline QStringList completions(const LogCapture& log)
{
    return managerLines(log).filter(QStringLiteral("D-Bus call "));
}

/** The same, sorted: Qt can deliver two answers that arrive close together in either order. */
inline QStringList sortedCompletions(const LogCapture& log)
{
    QStringList sorted = completions(log);
    sorted.sort();
    return sorted;
}

} // namespace Scenario
