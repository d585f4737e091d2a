#pragma once

#include "PlimBleExport.h"

#include <QString>
#include <QVector>

/** A problem of an application or advertisement that shows before it is handed over. */
struct PLIM_BLE_EXPORT BleFinding
{
    /** How bad it is. */
    enum Severity
    {
        Warning, ///< BlueZ takes it, but some daemons or controllers do not, or it is likely a mistake
        Error    ///< a stock daemon refuses it, or it cannot be reached on the bus
    };

    /** How bad it is. */
    Severity severity = Error;

    /** The object path, or of an advertisement the property, for instance "MinInterval"; "payload" for all of
     * what is broadcast. */
    QString where;

    /** What is wrong, in English; its wording may change. */
    QString what;

    /** What to do about it, in English; its wording may change. */
    QString cure;

    /** The finding in one line: "error: MinInterval: what. cure." */
    QString text() const;
};

/** Findings in the order in which a reader looks for them; empty where all is well. */
using BleFindings = QVector<BleFinding>;
