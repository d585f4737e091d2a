#pragma once

#include "GattSnapshot.h"
#include "Preflight.h"

/** Finds what BlueZ would reject of a tree, or a phone could not use. Internal: not installed. */
class GattPreflight
{
public:
    static BleFindings findings(const GattSnapshot& app);

private:
    /** @param parentHasPath  false: no object below can have a path, and no finding says so for each of them
     */
    void check(const GattSnapshot& object, bool parentHasPath);
    void checkUuid(const GattSnapshot& object);
    void checkUse(const GattSnapshot& object);
    void add(BleFinding::Severity severity, const GattSnapshot& object, const QString& message,
             const QString& remedy);

    BleFindings m_findings;
};
