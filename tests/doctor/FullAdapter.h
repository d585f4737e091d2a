#pragma once

#include "BleManager.h"
#include "GapAdvertisement.h"
#include "SimulatorScenario.h"

#include <memory>
#include <vector>

/** The stand-in daemon with as many advertisements as it takes. */
class FullAdapter
{
public:
    FullAdapter()
    {
        while (m_advertisements.size() < 5) {
            const QString path = QString("/adv%1").arg(m_advertisements.size());
            m_advertisements.push_back(std::make_unique<GapAdvertisement>(nullptr, path));
            BleManager::instance()->add(m_advertisements.back().get());
        }
        if (!QTest::qWaitFor([this] { return m_simulator.advertisements().size() == 5; }, 30000)) {
            qFatal("the stand-in daemon did not take five advertisements");
        }
    }

private:
    Simulator m_simulator{Scenario::acceptEverything};
    std::vector<std::unique_ptr<GapAdvertisement>> m_advertisements;
};
