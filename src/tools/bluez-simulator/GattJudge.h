#pragma once

#include "DBusTypes.h"
#include "Refusal.h"

namespace simulator {

/** Decides whether the daemon accepts the objects of an application into its attribute database. */
class GattJudge
{
public:
    explicit GattJudge(const DBusManagedObjectList& objects);

    /** The daemon's reason to reject it, or an empty one. */
    Refusal judge() const;

private:
    bool hasObjects() const;
    bool isWellFormed() const;
    bool fitsDatabase() const;

    bool isProfile(const QVariantMap& properties) const;
    bool isCharacteristic(const QVariantMap& properties) const;
    bool isDescriptor(const QVariantMap& properties) const;
    QList<QVariantMap> objectsWith(const QString& interface) const;
    bool exists(const QVariant& path, const QString& interface) const;

    DBusManagedObjectList m_objects;
};

} // namespace simulator
