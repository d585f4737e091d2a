#pragma once

#include "BleManager.h"
#include "KnownAdapters.h"
#include "OtherThreads.h"
#include "OwnConnections.h"
#include "RegistrationTracker.h"

#include <QDBusServiceWatcher>
#include <QList>

#include <algorithm>

class QDBusPendingCall;

/** The private members of the manager beside its lists and proxies. Internal: not installed. */
struct BleManager::Internals
{
    explicit Internals(BleManager* manager_);

    /**
     * Whether the object's path can be sent: libdbus aborts a process that sends an invalid one. An invalid
     * path is logged at ERROR and reported as a failed step.
     */
    bool canBeSent(const RegistrationTracker::Step& step, const char* signature);

    /** Passes the call's answer to the manager's log and to the tracker. */
    void watch(const QDBusPendingCall& call, const RegistrationTracker::Step& step);

    /** Forgets an object that has been deleted. */
    void forget(const QObject* deleted);

    /** Removes the deleted object. Only its QObject part is left: compare addresses, never dereference. */
    template <typename Object>
    static void removeDeleted(QList<const Object*>& held, const QObject* deleted)
    {
        const auto isDeleted = [deleted](const QObject* object) { return object == deleted; };
        held.erase(std::remove_if(held.begin(), held.end(), isDeleted), held.end());
    }

    BleManager* const manager;
    RegistrationTracker tracker;
    KnownAdapters adapters;
    QDBusServiceWatcher daemon;
    OtherThreads otherThreads;
    OwnConnections connections; ///< last member, so that they end first
};
