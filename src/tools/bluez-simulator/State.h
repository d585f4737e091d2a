#pragma once

#include "BluezVersion.h"
#include "CallLog.h"
#include "Faults.h"
#include "PhoneState.h"

#include <QByteArrayList>
#include <QMap>
#include <map>

namespace simulator {

/** The data that survives when the daemon vanishes from the bus. */
struct State
{
    CallLog calls;
    Faults faults;
    BluezVersion version = BluezVersion::Bluez582;
    bool acceptsEverything = false;
    int agentPatienceMs = 60000; // how long an agent may take to answer
    QMap<QString, QByteArrayList>
        notifications;                    // of the phone that is always there, by the characteristic's path
    std::map<QString, PhoneState> phones; // the others, by the paths of their devices
};

} // namespace simulator
