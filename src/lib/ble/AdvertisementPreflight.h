#pragma once

#include "AdvertisementSnapshot.h"
#include "Preflight.h"

/** Finds what BlueZ would reject or not broadcast of an advertisement. Internal: not installed. */
class AdvertisementPreflight
{
public:
    static BleFindings findings(const AdvertisementSnapshot& adv, int advertisingLimit,
                                int scanResponseLimit);

private:
    explicit AdvertisementPreflight(const AdvertisementSnapshot& adv) : m_adv(adv) {}

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
    bool shows(const QString& property) const;
    void add(BleFinding::Severity severity, const QString& location, const QString& message,
             const QString& remedy);

    const AdvertisementSnapshot& m_adv;
    BleFindings m_findings;
};
