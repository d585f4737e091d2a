#pragma once

#include "BleRegistration.h"

#include <QDBusServiceWatcher>
#include <QHash>
#include <QObject>
#include <QSharedPointer>

class GapAdvertisement;
class GattApplication;
class QDBusAbstractInterface;
class QDBusError;
class QDBusPendingCallWatcher;

/**
 * Stores the registration state of each held object, and calls the observer. It only records what the manager
 * does and what BlueZ answers; it makes no call on the bus. Internal: not installed.
 *
 * The observer runs from the event loop, never inside a call of the manager, so that it may do anything.
 */
class RegistrationTracker
{
public:
    /** One of the four calls to BlueZ, about one object. */
    struct Step
    {
        /**
         * @param tag    the step's name in log lines
         * @param phase  the object's phase until BlueZ answers
         */
        Step(const char* tag, const char* method, const QObject* object, const QString& objectPath,
             const QDBusAbstractInterface& manager, BleRegistrationState::Phase phase);

        const char* tag;
        QString method;
        const QObject* object; ///< only compared, never dereferenced
        QString objectPath;
        QString managerInterface;
        QString managerPath;
        BleRegistrationState::Phase phaseUntilAnswer;
    };

    RegistrationTracker();

    void setObserver(const BleRegistrationObserver& observer);
    BleRegistrationState state(const QObject* object) const;

    void add(const GattApplication* app);
    void add(const GapAdvertisement* adv);
    void remove(const QObject* object);

    void managerAppeared(const QString& interface, const QString& path);
    void managerGone(const QString& interface);

    /** Records that the step was sent. The watcher gets the answer. */
    void stepSent(const Step& step, const QDBusPendingCallWatcher* watcher);
    /** Records that the step could not be sent. */
    void stepNotSent(const Step& step, const QDBusError& error);

private:
    struct Entry
    {
        QString managerInterface;
        quint64 latestStep = 0;   ///< number of the step whose answer counts; 0 for none
        quint64 acceptedStep = 0; ///< number of the latest registration that BlueZ accepted; 0 for none
        quint64 endedStep = 0;    ///< registrations up to this number no longer hold
        BleRegistrationState state;
        QSharedPointer<QObject> releaseContext; ///< receives the releases, until it is deleted
    };

    void add(const QObject* object, const QString& managerInterface);
    quint64 begin(const Step& step);
    void finish(const Step& step, quint64 number, const QDBusError& error);
    void takeAnswer(Entry& entry, const Step& step, quint64 number, const QDBusError& error) const;
    void onReleased(const QObject* object, const QString& path);
    void queue(const BleRegistrationEvent& event);
    void callObserver(const BleRegistrationEvent& event) const;

    BleRegistrationObserver m_observer;
    QHash<const QObject*, Entry> m_entries;
    QHash<QString, QString> m_managerPaths; ///< by interface
    quint64 m_lastStep = 0;
    QDBusServiceWatcher m_daemonWatcher;
    QObject m_context; ///< receives all that arrives from the event loop; nothing arrives after its end
};
