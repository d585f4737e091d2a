#pragma once

#include "SimulatorScenario.h"

#include <QVector>

/** What the scenarios of the manager's observer share. */
namespace Scenario {

using Event = BleRegistrationEvent;
using State = BleRegistrationState;

/** The daemon's adapter at the start. */
inline const QString firstAdapter = QStringLiteral("/org/bluez/hci0");

/** Collects what an observer is told while it is the manager's. */
class Told
{
public:
    explicit Told(BleManager* manager = BleManager::instance())
    {
        manager->setRegistrationObserver([this](const Event& event) { m_events << event; });
    }

    const QVector<Event>& events() const { return m_events; }

    /** Each event in one line. */
    QStringList lines() const
    {
        QStringList lines;
        for (const Event& event : m_events) {
            lines << event.text();
        }
        return lines;
    }

    /** The same, sorted: Qt can deliver two answers that arrive close together in either order. */
    QStringList sortedLines() const
    {
        QStringList sorted = lines();
        sorted.sort();
        return sorted;
    }

    void clear() { m_events.clear(); }

private:
    QVector<Event> m_events;
};

/** The phase of a held application or advertisement with the process's manager. */
template <typename Object>
State::Phase phaseOf(const Object& object)
{
    return BleManager::instance()->registrationState(&object).phase;
}

} // namespace Scenario
