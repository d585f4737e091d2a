#pragma once

#include "BluezVersion.h"
#include "Refusal.h"

#include <QVariantMap>

namespace simulator {

/** Decides whether the daemon broadcasts an advertisement. */
class AdvertisementJudge
{
public:
    AdvertisementJudge(BluezVersion version, const QVariantMap& properties);

    /** The daemon's reason to reject it, or an empty one. */
    Refusal judge() const;

private:
    bool isParsable() const;
    bool hasParsableScalars() const;
    bool hasParsableInclusions() const;
    bool hasParsableDiscoverability() const;
    bool hasParsableRadioSettings() const;
    bool fitsPayload() const;

    bool isScalar(const QString& name, const QString& signature) const;
    bool isDiscoverable() const;
    bool isPeripheral() const;

    QVariantMap m_properties;
    BluezVersion m_version = BluezVersion::Bluez582;
};

} // namespace simulator
