#pragma once

#include "Preflight.h"

class GattApplication;
class GattCharacteristic;
class GattDescriptor;
class GattService;

/** Looks through a tree for what BlueZ would refuse or a phone could not use. Internal: not installed. */
class GattPreflight
{
public:
    static BleFindings of(const GattApplication& app);

private:
    void check(const GattService& service);
    void check(const GattCharacteristic& characteristic);
    void check(const GattDescriptor& descriptor);
    void checkUuid(const QString& path, const QString& uuid);
    void checkFlags(const QString& path, bool any);
    /** @return whether the object has its path, so that it makes sense to look at paths below */
    bool checkPath(const QObject* object, const QString& path);
    template <typename Child, typename Children>
    void checkSiblings(const QObject& parent, const Children& recorded);

    BleFindings m_findings;
    bool m_hasPath = true; ///< of the parent of what is being checked
};
