#pragma once

#include "Meter.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QObject>
#include <QString>

#include <functional>

/** A server that is measured, made with Qt: the library, or Qt alone. */
class MeasuredServer
{
public:
    using Done = std::function<void()>;

    MeasuredServer() = default;
    virtual ~MeasuredServer() = default;
    Q_DISABLE_COPY(MeasuredServer)

    /** Sends one notification of the characteristic Notifying. */
    virtual void notify(const QByteArray& value) = 0;
    /** Adds a tree of one service and a number of characteristics below a root of its own. */
    virtual void grow(const QString& root, unsigned characteristics) = 0;
    /** Removes the tree that grow() added. */
    virtual void shrink() = 0;
    /**
     * Builds objects and destroys them again.
     * @param what  "service", "characteristic", "descriptor" or "advertisement": that many in one parent; or
     *              "tree": an application with one service and that many characteristics; "getter": nothing
     *              is built, a getter is called that often
     */
    virtual Meter::Costs build(const QString& what, unsigned count) = 0;
    /** Registers the tree that grow() added with the daemon, or unregisters it; done when it has answered. */
    virtual void registerTree(const Done& done) = 0;
    virtual void unregisterTree(const Done& done) = 0;
    /** Registers an advertisement and keeps it. */
    virtual void advertise(const Done& done) = 0;
    /** Changes the advertisement so many times, which makes as many pairs of calls; done after all answers.
     */
    virtual void burst(unsigned changes, const Done& done) = 0;
};

/** Meter::costs() where adaptors post events to themselves, which take memory until they are handled. */
template <typename Build, typename Destroy>
Meter::Costs qtCosts(Build build, Destroy destroy)
{
    return Meter::costs(build, destroy, [] { QCoreApplication::sendPostedEvents(); });
}

/** What the load generator calls: interface org.example.Bench. */
class QtControl : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.example.Bench")
public:
    explicit QtControl(MeasuredServer& server);

public slots:
    void Mark(const QString& name);
    void Notify(uint bytes, uint count);
    void Grow(const QString& root, uint characteristics);
    void Shrink();
    /** Build, destroy (ns) and heap (bytes) of so many objects. */
    qulonglong Build(const QString& what, uint count, qulonglong& destroy, qulonglong& heap);
    // Answered, with nothing, when the daemon has answered.
    void Register(const QDBusMessage& message);
    void Unregister(const QDBusMessage& message);
    void Advertise(const QDBusMessage& message);
    void Burst(uint changes, const QDBusMessage& message);

private:
    static MeasuredServer::Done reply(const QDBusMessage& message);
    MeasuredServer& m_server;
};

/**
 * Serves until standard input ends.
 * @param argv  with "--startup": ends as soon as a small tree and an advertisement are registered
 */
int serve(int argc, char** argv, const QString& busName, const std::function<MeasuredServer*()>& makeServer);
