#pragma once

#include "PlimBleExport.h"

#include <QString>
#include <QVector>

/** A problem of an application or advertisement, found before it is given to the manager. */
struct PLIM_BLE_EXPORT BleFinding
{
    /** How bad it is. */
    enum Severity
    {
        Warning, ///< BlueZ accepts it, but some versions or controllers do not, or it is likely a mistake
        Error    ///< a stock daemon rejects it, or it cannot be reached on the bus
    };

    /** How bad it is. */
    Severity severity = Error;

    /**
     * Where the problem is: an object path; in an advertisement the property, for instance "MinInterval", or
     * "payload" for everything that is broadcast.
     */
    QString location;

    /** What is wrong, in English; the wording may change. */
    QString message;

    /** What to do about it, in English; the wording may change. */
    QString remedy;

    /** The finding in one line: "error: LOCATION: MESSAGE. REMEDY." */
    QString text() const;
};

/** Findings, in the order of the tree or of the advertisement's properties; empty if there is no problem. */
using BleFindings = QVector<BleFinding>;
