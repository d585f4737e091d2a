#pragma once

#include "Preflight.h"

#include <QString>

#include <vector>

/** The values of a tree, or of one object in it, that GattPreflight checks. Internal: not installed. */
struct GattSnapshot
{
    enum Kind
    {
        Application,
        Service,
        Characteristic,
        Descriptor
    };

    Kind kind = Application;
    QString path;
    Preflight::ExportState exportState = Preflight::Exported;
    QString uuid;             ///< empty for an application
    bool isDisplaced = false; ///< a later child with the same UUID has taken its place
    bool hasFlags = true;     ///< whether any known option is set; true for application and service
    bool notifies = false;
    bool hasValue = false; ///< also true with a read callback
    std::vector<GattSnapshot> children;
};
