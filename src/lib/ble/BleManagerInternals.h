#pragma once

#include "BleManager.h"
#include "OtherThreads.h"
#include "OwnConnections.h"
#include "RegistrationTracker.h"

class QDBusPendingCall;

/** What the manager needs beside its lists and proxies. Internal: not installed. */
struct BleManager::Internals
{
    explicit Internals(BleManager* manager_) : manager(manager_), otherThreads(manager_) {}

    /**
     * Whether the object's path can be sent. One that is not a valid object path is logged and reported as a
     * failed step: libdbus aborts a process that tries to send it.
     */
    bool canBeSent(const RegistrationTracker::Step& step, const char* signature);

    /** Passes the call's answer to the manager's log and to the tracker. */
    void watch(const QDBusPendingCall& call, const RegistrationTracker::Step& step);

    /** Forgets an object that has been deleted. */
    void forget(const QObject* deleted);

    BleManager* const manager;
    RegistrationTracker tracker;
    OtherThreads otherThreads;
    OwnConnections connections; ///< last, so that they end first
};
