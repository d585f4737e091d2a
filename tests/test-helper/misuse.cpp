// Tests that fail, for tst_ble_test to look at how.

#include "PlimBleTest.h"

#include <QThread>

#include <csignal>
#include <cstdio>
#include <cstdlib>

class Misuse : public QObject
{
    Q_OBJECT

private slots:
    void asksForAnUnknownUuid()
    {
        PlimBleTest ble;
        QVERIFY(ble.find("no such UUID").isEmpty());
    }

    void readsWhatIsNotThere()
    {
        PlimBleTest ble;
        QVERIFY(ble.read("/nowhere").isEmpty());
    }

    void readsWithAPhoneThatHasLeft()
    {
        PlimBleTest ble;
        PlimBleTest::Phone phone;
        phone.disconnect();
        QVERIFY(phone.read("/nowhere").isEmpty());
    }

    void givesWrongArguments() { PlimBleTest ble({"--bluez", "4.2"}); }

    void hasUsedTheBusBefore()
    {
        QDBusConnection::systemBus();
        PlimBleTest ble;
    }

    void exits()
    {
        PlimBleTest ble;
        tellProcesses();
        std::_Exit(1);
    }

    void isKilled()
    {
        PlimBleTest ble;
        tellProcesses();
        ::raise(SIGKILL);
    }

    void hangs()
    {
        PlimBleTest ble;
        tellProcesses();
        QThread::sleep(600);
    }

private:
    /** Prints the ids of the processes that belong to this one. */
    static void tellProcesses()
    {
        QDBusConnectionInterface* bus = QDBusConnection::systemBus().interface();
        std::printf("\nprocesses %u %u\n", bus->servicePid("org.plim.BluezSimulator").value(),
                    bus->servicePid("org.freedesktop.DBus").value());
        std::fflush(stdout);
    }
};

QTEST_GUILESS_MAIN(Misuse)
#include "misuse.moc"
