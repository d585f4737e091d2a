#pragma once

#include "PlimBleExport.h"

#include <QString>

#include <functional>

/** What BleManager reports to its observer: the result of one step, or something that BlueZ did by itself. */
struct PLIM_BLE_EXPORT BleRegistrationEvent
{
    /** What happened. */
    enum Kind
    {
        ManagerAppeared,      ///< BlueZ's manager for one kind of object appeared; it is asked to register
                              ///< everything that is held
        ManagerGone,          ///< the manager was removed, or the whole daemon ended
        StepSucceeded,        ///< BlueZ accepted a step
        StepFailed,           ///< BlueZ rejected a step or did not answer it, or the step could not be sent
        AdvertisementReleased ///< BlueZ dropped a held advertisement: its time-out passed, or its adapter
                              ///< was removed
    };

    /** What happened. */
    Kind kind = StepFailed;

    /** The step, named after its D-Bus method, for instance "RegisterApplication"; empty for other events. */
    QString step;

    /** BlueZ's interface for this kind of object, for instance "org.bluez.GattManager1". */
    QString managerInterface;

    /** The object path of BlueZ's manager, which is the path of its adapter. */
    QString managerPath;

    /** The path of the application or advertisement; empty if a manager appeared or was removed. */
    QString objectPath;

    /** The D-Bus name of the error, for instance "org.bluez.Error.Failed"; empty unless a step failed. */
    QString errorName;

    /** The error's text as BlueZ sent it, which may be empty. */
    QString errorMessage;

    /**
     * Whether this answer no longer describes the object's state: a later step for the object has been sent,
     * the object was removed or deleted, or the daemon that was asked has gone. A change of a held object
     * sends two steps at once, so the answer to the first of them is always superseded.
     */
    bool superseded = false;

    /** The event in one line of English, without a full stop; the wording may change. */
    QString text() const;
};

/** The registration state of an application or advertisement, as far as the manager can know it. */
struct PLIM_BLE_EXPORT BleRegistrationState
{
    /** The states. */
    enum Phase
    {
        NotHeld,         ///< never added, removed, or deleted
        WaitingForBlueZ, ///< held; it is registered as soon as BlueZ's manager appears
        Pending,         ///< BlueZ has been asked to register it and has not answered yet
        Registered, ///< BlueZ has accepted it; a second registration's "Already Exists" does not change that
        Refused,    ///< BlueZ has rejected it, has not answered in time, or could not be asked
        Dropped     ///< no longer registered: BlueZ released it, or the program unregistered it itself
    };

    /** The current state. */
    Phase phase = NotHeld;

    /** The object path of the manager that was asked; empty while NotHeld or WaitingForBlueZ. */
    QString managerPath;

    /** The D-Bus name of the error; empty unless Refused. */
    QString errorName;

    /** The error's text as BlueZ sent it, which may be empty. */
    QString errorMessage;

    /** The state in a few words of English; the wording may change. */
    QString text() const;
};

/** See BleManager::setRegistrationObserver(). */
using BleRegistrationObserver = std::function<void(const BleRegistrationEvent&)>;
