#pragma once

#include "GapAdvertisement.h"
#include "GattApplication.h"
#include "GattCharacteristic.h"
#include "GattDescriptor.h"
#include "GattService.h"
#include "RawBusClient.h"
#include "Simulator.h"

#include <QCryptographicHash>
#include <QPointer>
#include <QVector>

#include <functional>
#include <random>

/**
 * Applications and advertisements to which random things happen, one operation after the other and one inside
 * the other: every signal of every object, every read callback and every nested event loop may start a
 * further operation.
 *
 * All choices come from one seed. What the daemon answers decides nothing, and calls over the bus are waited
 * for, so that a seed always gives the same operations; their digest shows it.
 */
class RandomLifetimes
{
public:
    RandomLifetimes(unsigned seed, Simulator* daemon, bool verbose);
    ~RandomLifetimes();
    Q_DISABLE_COPY(RandomLifetimes)

    /** One operation, with those that it starts. */
    void run();

    /** Every operation so far, those inside others included. */
    qint64 operations() const { return m_operations; }
    /** How many of them ran inside another one. */
    qint64 nested() const { return m_nested; }
    qint64 builtApplications() const { return m_builtApplications; }
    QByteArray digest() const { return m_digest.result().toHex().left(16); }

    /**
     * Lets the daemon vanish and return, and compares.
     * @return what is wrong: calls that are still watched, held objects that are not registered, others that
     * are; empty if nothing is
     */
    QString discrepancy();

    /** Deletes everything. */
    void clear();

    // For the operations: chances, and something that lives at this moment, or null.
    int below(int limit) { return int(m_random() % unsigned(limit)); }
    bool chance(int oneIn) { return below(oneIn) == 0; }
    GattApplication* application() { return anyOf(alive(m_applications)); }
    GapAdvertisement* advertisement() { return anyOf(alive(m_advertisements)); }
    GattService* service() { return anyChild<GattService>(application()); }
    GattCharacteristic* characteristic() { return anyChild<GattCharacteristic>(application()); }
    GattDescriptor* descriptor() { return anyChild<GattDescriptor>(application()); }
    QByteArray bytes();
    Simulator& daemon() { return *m_daemon; }

    /** False inside destroyed(): Qt leaks 40 bytes for a call that an event loop delivers to what is ending.
     */
    bool maySpin() const { return m_ending == 0; }

    // For the operations: what has to be remembered.
    void build();
    void follow(GattService* service);
    void follow(GattCharacteristic* characteristic);
    void advertise();
    template <typename Object>
    void hold(Object* object);
    template <typename Object>
    void release(Object* object);
    /** A characteristic's method called over the bus; answered when this returns. */
    void ask(const QString& path, const QString& member, const QString& signature,
             const QStringList& arguments);
    /** The daemon's. */
    void comeAndGo();
    /** A operation inside whatever is going on, unless enough is going on already. */
    void interfere();

private:
    template <typename Object>
    static QVector<Object*> alive(const QVector<QPointer<Object>>& all)
    {
        QVector<Object*> found;
        for (const QPointer<Object>& each : all) {
            if (each) {
                found << each.data();
            }
        }
        return found;
    }
    template <typename Object>
    Object* anyOf(const QVector<Object*>& all)
    {
        return all.isEmpty() ? nullptr : all.at(below(int(all.size())));
    }
    template <typename Object>
    Object* anyChild(const QObject* root)
    {
        // Those too whose place another one with the same UUID has taken.
        return root ? anyOf(root->findChildren<Object*>().toVector()) : nullptr;
    }
    template <typename Object>
    QVector<QPointer<const Object>>& held();
    void interfereAtTheEndOf(QObject* object);
    template <typename Object, typename Signal>
    void interfereAt(Object* object, Signal signal);
    QStringList registrable() const;
    void observe();
    QStringList misjudged() const;
    QStringList registered() const;

    std::mt19937 m_random;
    Simulator* m_daemon;
    RawBusClient m_client;
    const bool m_verbose;
    QCryptographicHash m_digest{QCryptographicHash::Sha1};
    int m_depth = 0;
    int m_ending = 0;
    qint64 m_operations = 0;
    qint64 m_nested = 0;
    qint64 m_builtApplications = 0;
    QVector<QPointer<GattApplication>> m_applications;
    QVector<QPointer<GapAdvertisement>> m_advertisements;
    QVector<QPointer<const GattApplication>> m_heldApplications;
    QVector<QPointer<const GapAdvertisement>> m_heldAdvertisements;
};

/** Something that may happen. */
struct Operation
{
    const char* name;
    int weight;
    std::function<void(RandomLifetimes&)> run;
};

/** All of them, in an order that never changes within a build. */
const QVector<Operation>& allOperations();
