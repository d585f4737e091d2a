#pragma once

#include "BleDBusTypes.h"
#include "Preflight.h"

class GapAdvertisement;

/** Looks through an advertisement for what BlueZ would refuse or not broadcast. Internal: not installed. */
class AdvertisementPreflight
{
public:
    static BleFindings of(const GapAdvertisement& adv, int advertisingLimit, int scanResponseLimit);

private:
    explicit AdvertisementPreflight(const GapAdvertisement& adv) : m_adv(adv) {}

    void checkType();
    void checkRadioSettings();
    void checkInterval(const QString& property, unsigned int milliseconds);
    void checkUuids();
    void checkBlocks();
    void checkRaw(const QString& property, const DBusAdvData& blocks);
    void checkPayload(int limit);
    void checkScanResponse(int limit);

    int uuidsLength() const;
    int serviceDataLength() const;
    bool shows(const char* property) const;
    void add(BleFinding::Severity severity, const QString& where, const QString& what, const QString& cure);

    const GapAdvertisement& m_adv;
    BleFindings m_findings;
};
