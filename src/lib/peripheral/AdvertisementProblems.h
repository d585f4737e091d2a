#pragma once

#include "BleFinding.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>

namespace plim {

class Advertisement;

namespace detail {

/** Looks for what BlueZ would refuse of an advertisement's own fields, in addition to those of its base
 * class. Internal: not installed. */
class AdvertisementProblems
{
public:
    /** @param shown  what the bus sees */
    AdvertisementProblems(const Advertisement& advertisement, const QVariantMap& shown);

    /** What the base class finds with these limits. */
    using Base = std::function<BleFindings(int advertisingLimit, int scanResponseLimit)>;

    /** All findings, those of the base class first. */
    BleFindings of(const Base& base, int advertisingLimit, int scanResponseLimit);

private:
    void checkSize(const QString& location, int size, int limit);
    void checkUuids(const QString& property, const QStringList& uuids);
    void checkScanResponse();
    void checkIncludes();
    void checkDiscoverability();
    void checkSecondaryChannel();
    void add(BleFinding::Severity severity, const QString& location, const QString& message,
             const QString& remedy);

    const Advertisement& m_adv;
    const QVariantMap m_shown;
    BleFindings m_findings;
};

} // namespace detail
} // namespace plim
