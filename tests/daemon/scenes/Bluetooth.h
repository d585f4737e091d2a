#pragma once

#include "Child.h"

#include <QFile>
#include <QString>

#include <memory>

/**
 * What is Bluetooth in the virtual machine, until this object ends: a system bus, two virtual controllers
 * that hear each other, the real daemon, and records of what goes over the bus and between the controllers
 * and the kernel.
 *
 * After useMachine() it is instead what the machine has: its system bus, its daemon under systemd, its
 * controllers.
 */
class Bluetooth
{
public:
    /** What the virtual controllers can do. */
    enum Controllers
    {
        DualMode,
        /** Three that cannot do classic Bluetooth. After pairing over one that can, the daemon tries classic
         * Bluetooth too, which ends in a fault of the kernel's. */
        LowEnergy,
        ThreeDualMode
    };

    /** Whether the daemon, the bus and the controllers are recorded, which takes most of the processor. */
    enum Records
    {
        Recorded,
        Unrecorded
    };

    /** Uses the machine's own controllers, given by name ("hci0"). */
    static void useMachine(const QString& device, const QString& phone);
    static bool usesMachine();

    /**
     * Starts everything afresh, and waits until both adapters are powered.
     * @param configuration  what the daemon's main.conf is to say, nothing for its defaults
     */
    explicit Bluetooth(const QByteArray& configuration = {}, Controllers controllers = DualMode,
                       Records records = Recorded);
    ~Bluetooth();
    Q_DISABLE_COPY(Bluetooth)

    /** How the virtual controllers' program died during this process's scene, empty if it did not. */
    static QString emulatorDeath();

    void startDaemon();
    /** Ends the daemon as a crash does. */
    void killDaemon();
    bool daemonRuns() const;
    /** Waits until the daemon offers both adapters, powered. */
    void awaitAdapters();
    bool adaptersPowered() const;

    /** Takes both controllers away, or brings them. */
    void unplug();
    void plugIn();
    /** Brings them after another one, which takes the number 0 and never works. */
    void plugInAfterAnother();

    /** The adapter of the device under test, and the phone's. */
    QString device() const;
    QString phone() const;
    /** The adapter of another phone, where there are three controllers. */
    QString secondPhone() const;
    QString deviceAddress() const;
    QString phoneAddress() const;
    QString secondPhoneAddress() const;

    /** What the controllers and the kernel have said to each other, as btmon tells it, which may be late. */
    QString monitored() const;
    /** What has gone over the bus until now, as dbus-monitor tells it. */
    QString traffic() const;
    /** The ATT errors that the phone's controller received, as btmon tells it, without those that end a
     * search for attributes: "0x0021 0x0e" for handle and error. */
    QStringList monitoredErrors() const;

private:
    struct Nothing
    {
    };
    Bluetooth(Nothing, Controllers controllers, Records records);
    void noteEmulatorDeath();
    void startAll(const QByteArray& configuration);

    const Controllers m_kind;
    const Records m_records;
    std::unique_ptr<Child> m_bus;
    std::unique_ptr<Child> m_traffic;
    std::unique_ptr<Child> m_monitor;
    std::unique_ptr<Child> m_controllers;
    QFile m_otherController;
    std::unique_ptr<Child> m_daemon;
};
