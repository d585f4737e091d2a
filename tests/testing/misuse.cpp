// Tests that fail, for tst_ble_test to look at how.

#include "PlimBleTest.h"

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

    void givesWrongArguments() { PlimBleTest ble({"--bluez", "4.2"}); }

    void hasUsedTheBusBefore()
    {
        QDBusConnection::systemBus();
        PlimBleTest ble;
    }

    void crashes()
    {
        PlimBleTest ble;
        std::printf("\naddress %s\n", std::getenv("DBUS_SYSTEM_BUS_ADDRESS"));
        std::fflush(stdout);
        std::_Exit(1);
    }
};

QTEST_GUILESS_MAIN(Misuse)
#include "misuse.moc"
