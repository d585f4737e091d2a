#pragma once

#include "GattSnapshot.h"
#include "Preflight.h"

/** Looks through a tree for what BlueZ would refuse or a phone could not use. Internal: not installed. */
class GattPreflight
{
public:
    static BleFindings findings(const GattSnapshot& app);

private:
    /** @param parentHasPath  otherwise no object below can have one, which is not worth a finding each */
    void check(const GattSnapshot& object, bool parentHasPath);
    void checkUuid(const GattSnapshot& object);
    void checkUse(const GattSnapshot& object);
    void add(BleFinding::Severity severity, const GattSnapshot& object, const QString& message,
             const QString& remedy);

    BleFindings m_findings;
};
