#pragma once

#include "BleRegistration.h"

#include <QDBusServiceWatcher>
#include <QHash>
#include <QSharedPointer>

class GapAdvertisement;
class GattApplication;
class QDBusError;
class QDBusPendingCallWatcher;

/**
 * The manager's book: how BlueZ stands to each object that is held, and who wants to hear of it. It only
 * listens; it sends nothing and decides nothing. Internal: not installed.
 *
 * The observer runs from the event loop, never inside a call of the manager, so that it may do anything.
 */
class Registrations
{
public:
    /** A step that was sent, or should have been. */
    struct Step
    {
        const QObject* object;             ///< only compared
        BleRegistrationState::Phase until; ///< how the object stands until the answer
        QString method;
        QString objectPath;
        QString managerInterface;
        QString managerPath;
    };

    Registrations();

    void setObserver(const BleRegistrationObserver& observer);
    BleRegistrationState state(const QObject* object) const;

    void hold(const GattApplication* app);
    void hold(const GapAdvertisement* adv);
    void forget(const QObject* object);

    void managerAppeared(const char* interface, const QString& path);
    void managerGone(const char* interface);

    void sent(const Step& step, const QDBusPendingCallWatcher* watcher);
    void notSent(const Step& step, const QDBusError& error);

private:
    struct Entry
    {
        QString managerInterface;
        quint64 latestStep = 0; ///< whose answer counts; 0 for none
        BleRegistrationState state;
        QSharedPointer<QObject> ear; ///< hears of releases; with it ends what is still on its way
    };

    void hold(const QObject* object, const char* managerInterface);
    quint64 begin(const Step& step);
    void finish(const Step& step, quint64 number, const QDBusError& error);
    void released(const QObject* object, const QString& path);
    void tell(const BleRegistrationEvent& event);
    void call(const BleRegistrationEvent& event) const;

    BleRegistrationObserver m_observer;
    QHash<const QObject*, Entry> m_entries;
    QHash<QString, QString> m_managers; ///< interface to path
    quint64 m_steps = 0;
    QDBusServiceWatcher m_daemon; ///< also the context of whatever arrives later, which its end cuts off
};
