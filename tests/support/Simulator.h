#pragma once

#include "PlimBleTestProcesses.h"

#include <QDBusMessage>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariantMap>

/**
 * The stand-in daemon plim-bluez-simulator as a child process on the private bus, ready once constructed and
 * ended with this object.
 *
 * Its control interface, method by method; a call that the simulator refuses ends the test program, since
 * nothing that follows would mean anything. control() is for tests of the refusals themselves.
 */
class Simulator
{
public:
    /** @param arguments  its command line; empty for one adapter, hci0, and strict judgement */
    explicit Simulator(const QStringList& arguments = {});
    Q_DISABLE_COPY(Simulator)

    /** The program's path. */
    static QString program();

    /** Lets it end by itself; its exit code, or -1 when it crashed or had to be killed. */
    int end() { return m_process.end(); }

    void vanish() { change("Vanish"); }
    void appear() { change("Appear"); }
    void restart() { change("Restart"); }
    void addAdapter(const QString& name) { change("AddAdapter", {name}); }
    void addAdapter(const QString& name, const QString& address) { change("AddAdapterAt", {name, address}); }
    void removeAdapter(const QString& name) { change("RemoveAdapter", {name}); }
    void announce(const QString& path, const QStringList& interfaces);
    void withdraw(const QString& path, const QStringList& interfaces);
    void setProperty(const QString& path, const QString& interface, const QString& name,
                     const QVariant& value);
    /** Restores the normal answer to a method. */
    void answerNormally(const QString& member) { setAnswer(member, QStringLiteral("normal")); }
    void answerWithError(const QString& member, const QString& name, const QString& message);
    void answerLate(const QString& member, uint delayMs);
    void neverAnswer(const QString& member) { setAnswer(member, QStringLiteral("never")); }
    void acceptEverything() { order("SetAcceptEverything", {true}); }
    void releaseAdvertisement(const QString& path);

    /**
     * The calls of the four registration methods so far, in order, in the form
     * "/org/bluez/hci0 RegisterApplication(/the/application, {})".
     */
    QStringList calls() const;
    /** The same calls with everything that is recorded about them. */
    QList<QVariantMap> callRecords() const;
    /** How often any method of the daemon was called. */
    int callsOf(const QString& member) const;
    void clearCalls() { order("ClearCalls"); }

    /** The paths of what is registered, in the order of registering. */
    QStringList applications() const { return paths("Applications"); }
    QStringList advertisements() const { return paths("Advertisements"); }

    /** What the daemon read from a registered advertisement: values, and signatures on the wire. */
    QVariantMap advertisement(const QString& path) const;
    QMap<QString, QString> advertisementSignatures(const QString& path) const;

    /**
     * Returns when the daemon has handled all that this program sent before, and this program all that the
     * daemon sent until then: what has not happened by now is not under way either. The daemon must be there.
     */
    void settle() const;

    /** Calls a method of the control interface and waits for the answer, which may be an error. */
    static QDBusMessage control(const QString& member, const QVariantList& arguments = {});

private:
    static QDBusMessage order(const char* member, const QVariantList& arguments = {});
    static void change(const char* member, const QVariantList& arguments = {});
    static QList<QVariantMap> allCallRecords();
    static QStringList paths(const char* member);
    static void setAnswer(const QString& member, const QString& mode, const QString& name = {},
                          const QString& message = {}, uint delayMs = 0);

    PlimBleTestDetail::Child m_process;
};
