#pragma once

#include "BleRegistration.h"
#include "PlimBleExport.h"

#include <QObject>

/**
 * Tells the libraries above what a manager's observer is told, so that the observer stays the program's own.
 * Internal: not installed.
 */
class PLIM_BLE_EXPORT RegistrationNews : public QObject
{
    Q_OBJECT

public:
    /** The one of this process. */
    static RegistrationNews* instance();

signals:
    /** A manager's event, from the event loop of the manager's thread, before its observer is called. By then
     * the state may have moved on: ask BleManager::registrationState(). */
    void happened(const BleRegistrationEvent& event);

private:
    RegistrationNews();
};

Q_DECLARE_METATYPE(BleRegistrationEvent)
