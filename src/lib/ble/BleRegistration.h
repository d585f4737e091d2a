#pragma once

#include "PlimBleExport.h"

#include <QString>

#include <functional>

/** What BleManager tells its observer: how one step ended, or what BlueZ did of itself. */
struct PLIM_BLE_EXPORT BleRegistrationEvent
{
    /** What happened. */
    enum Kind
    {
        ManagerAppeared, ///< BlueZ's manager for one kind of object is there, and asked to register what is
                         ///< held
        ManagerGone,     ///< it is there no longer, or the whole daemon ended
        StepSucceeded,   ///< BlueZ answered a step
        StepFailed,      ///< BlueZ refused a step, never answered it, or the step could not be sent
        AdvertisementReleased ///< BlueZ dropped a held advertisement: its time-out passed, or its adapter
                              ///< went
    };

    /** What happened. */
    Kind kind = StepFailed;

    /** The step, by the name of its D-Bus method, for instance "RegisterApplication"; empty where none ended.
     */
    QString step;

    /** BlueZ's interface for this kind of object, for instance "org.bluez.GattManager1". */
    QString managerInterface;

    /** The object path of BlueZ's manager, which is its adapter's. */
    QString managerPath;

    /** The path of the application or advertisement; empty where a manager came or went. */
    QString objectPath;

    /** The D-Bus name of the error, for instance "org.bluez.Error.Failed"; empty unless a step failed. */
    QString errorName;

    /** The error's text as BlueZ sent it, which may be empty. */
    QString errorMessage;

    /**
     * Whether the answer says nothing any more of a held object: a later step about it was sent meanwhile, it
     * was removed or deleted, or the daemon that was asked has gone. A change of a held object sends two
     * steps at once, so that the answer to the first of them is always overtaken.
     */
    bool overtaken = false;

    /** The event in one line of English, without a full stop; its wording may change. */
    QString text() const;
};

/** How BlueZ stands to an application or advertisement, as far as the manager can know. */
struct PLIM_BLE_EXPORT BleRegistrationState
{
    /** How far it has come. */
    enum Phase
    {
        NotHeld,        ///< never added, removed, or deleted
        WithoutManager, ///< held; registered as soon as BlueZ's manager appears
        Asked,          ///< BlueZ has been asked to register it, and has not answered
        Registered,     ///< BlueZ has taken it
        Refused,        ///< BlueZ has refused it, has not answered in time, or could not be asked
        Dropped ///< no longer registered: BlueZ released it, or the program called an unregister step itself
    };

    /** How far it has come. */
    Phase phase = NotHeld;

    /** The object path of the manager that was asked; empty while not held or without a manager. */
    QString managerPath;

    /** The D-Bus name of the error; empty unless refused. */
    QString errorName;

    /** The error's text as BlueZ sent it, which may be empty. */
    QString errorMessage;

    /** The state in a few words of English; their wording may change. */
    QString text() const;
};

/** See BleManager::setRegistrationObserver(). */
using BleRegistrationObserver = std::function<void(const BleRegistrationEvent&)>;
