#pragma once

#include "Child.h"

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
    /** Uses the machine's own controllers, given by name ("hci0"). */
    static void useMachine(const QString& device, const QString& phone);
    static bool usesMachine();

    /**
     * Starts everything afresh, and waits until both adapters are powered.
     * @param configuration  what the daemon's main.conf is to say, nothing for its defaults
     */
    explicit Bluetooth(const QByteArray& configuration = {});
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

    /** The adapter of the device under test, and the phone's. */
    QString device() const;
    QString phone() const;
    QString deviceAddress() const;
    QString phoneAddress() const;

    /** What the controllers and the kernel have said to each other, as btmon tells it. */
    QString monitored() const;

private:
    struct Nothing
    {
    };
    explicit Bluetooth(Nothing);
    void noteEmulatorDeath();
    void startAll(const QByteArray& configuration);

    std::unique_ptr<Child> m_bus;
    std::unique_ptr<Child> m_traffic;
    std::unique_ptr<Child> m_monitor;
    std::unique_ptr<Child> m_controllers;
    std::unique_ptr<Child> m_daemon;
};
