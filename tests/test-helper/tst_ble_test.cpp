// What PlimBleTest promises to those who test their own peripherals with it.

#include "BleManager.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"
#include "PlimBleTest.h"

#include <QProcess>
#include <QRegularExpression>

#include <csignal>

namespace {

constexpr int PatienceMs = 20000;
const QString path = QStringLiteral("/com/example/tested");
const QString uuid = QStringLiteral("0000180f-0000-1000-8000-00805f9b34fb");

struct Peripheral
{
    GattApplication application{nullptr, path, "com.example.Tested"};
    GattService* service = application.createService(uuid, true);

    Peripheral() { BleManager::instance()->add(&application); }
};

struct Outcome
{
    QByteArray output;
    bool success;
};

/** What a test that is wrong prints, and whether it counts as passed. QTest's watchdog is to end it at last.
 */
Outcome run(const char* misuse, int watchdogMs = PatienceMs)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("QTEST_FUNCTION_TIMEOUT", QString::number(watchdogMs));
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(QStringLiteral(MISUSE), {misuse});
    process.waitForFinished(2 * PatienceMs);
    const bool success = process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    return {process.readAll(), success};
}

} // namespace

#define EVENTUALLY_VERIFY(condition) QTRY_VERIFY_WITH_TIMEOUT(condition, PatienceMs)
#define FAILS_WITH(misuse, words)                                                                            \
    do {                                                                                                     \
        const Outcome outcome = run(misuse);                                                                 \
        QVERIFY2(outcome.output.contains(words), outcome.output);                                            \
        QVERIFY(!outcome.success);                                                                           \
    } while (false)

class TestBleTest : public QObject
{
    Q_OBJECT

private slots:
    void theDaemonKnowsWhatIsAdded()
    {
        PlimBleTest ble;
        Peripheral peripheral;
        EVENTUALLY_VERIFY(ble.applications() == QStringList(path));
        QCOMPARE(ble.find(uuid), peripheral.service->dbusPath());
        QVERIFY(ble.advertisements().isEmpty());
    }

    void anotherDaemonKnowsNothingOfTheFirst()
    {
        {
            PlimBleTest ble;
            Peripheral peripheral;
            EVENTUALLY_VERIFY(!ble.applications().isEmpty());
        }
        PlimBleTest ble;
        QVERIFY(ble.applications().isEmpty());
    }

    void theDaemonComesAndGoes()
    {
        PlimBleTest ble;
        Peripheral peripheral;
        EVENTUALLY_VERIFY(!ble.applications().isEmpty());
        ble.vanish();
        QVERIFY(!QDBusConnection::systemBus().interface()->isServiceRegistered("org.bluez"));
        ble.appear();
        EVENTUALLY_VERIFY(ble.applications() == QStringList(path));
    }

    void theDaemonRefuses()
    {
        PlimBleTest ble;
        ble.refuse("RegisterApplication", "org.bluez.Error.NotPermitted", "Maximum applications reached");
        Peripheral peripheral;
        const auto calls = [] {
            return PlimBleTest::control("Calls").arguments().value(0).value<QDBusArgument>();
        };
        EVENTUALLY_VERIFY(!qdbus_cast<QList<QVariantMap>>(calls()).isEmpty());
        QVERIFY(ble.applications().isEmpty());
        ble.refuse("RegisterApplication", {});
        ble.restart();
        EVENTUALLY_VERIFY(ble.applications() == QStringList(path));
    }

    void theSimulatorTakesArguments()
    {
        PlimBleTest ble({"--absent"});
        QVERIFY(!QDBusConnection::systemBus().interface()->isServiceRegistered("org.bluez"));
        ble.appear();
        QVERIFY(QDBusConnection::systemBus().interface()->isServiceRegistered("org.bluez"));
    }

    void anUnknownUuidFailsTheTest()
    {
        FAILS_WITH("asksForAnUnknownUuid", "no registered object has the UUID no such UUID");
    }

    void anErrorFailsTheTest() { FAILS_WITH("readsWhatIsNotThere", "ReadLong: "); }

    void anErrorThatIsNoneOfThePhonesFailsTheTest()
    {
        FAILS_WITH("readsWithAPhoneThatHasLeft", "Read: The phone 00:AA:01:01:00:02 is not connected");
    }

    void aSimulatorThatDoesNotStartEndsTheProgram()
    {
        FAILS_WITH("givesWrongArguments", "--bluez accepts 5.66 and 5.82, not '4.2'");
    }

    void aBusInUseEndsTheProgram()
    {
        PlimBleTest ble; // whose bus is the one in use, and never the machine's
        FAILS_WITH("hasUsedTheBusBefore",
                   "is not on this program's system bus: the program has used the bus before");
    }

    void nothingSurvivesTheProgram_data()
    {
        QTest::addColumn<QByteArray>("end");
        for (const char* end : {"exits", "isKilled", "hangs"}) {
            QTest::newRow(end) << QByteArray(end);
        }
    }

    void nothingSurvivesTheProgram()
    {
        QFETCH(const QByteArray, end);
        // Enough time to start the processes; what hangs then takes that long.
        const QString output = QString::fromLocal8Bit(run(end, 10000).output);
        const auto processes = QRegularExpression("processes (\\d+) (\\d+)").match(output);
        QVERIFY2(processes.hasMatch(), qPrintable(output));
        QCOMPARE(output.contains("timed out"), end == "hangs");
        for (const int number : {1, 2}) {
            const pid_t process = processes.captured(number).toInt();
            QVERIFY(process > 0);
            EVENTUALLY_VERIFY(::kill(process, 0) != 0);
        }
    }
};

QTEST_GUILESS_MAIN(TestBleTest)
#include "tst_ble_test.moc"
