#pragma once

#include "AdvertisementJudge.h"
#include "CallLog.h"
#include "Faults.h"

#include <QByteArrayList>
#include <QMap>

/** The data that survives when the daemon vanishes from the bus. */
struct State
{
    CallLog calls;
    Faults faults;
    BluezVersion version = BluezVersion::Bluez582;
    bool acceptsEverything = false;
    QMap<QString, QByteArrayList> notifications; // by the characteristic's path
};
