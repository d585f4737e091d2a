#include "Doctor.h"
#include "PrivateBus.h"
#include "Simulator.h"

#include <QtTest>

/** The doctor as a program: its command line, what it prints, its exit codes. */
class tst_doctor_program : public QObject
{
    Q_OBJECT

private slots:
    void helpExplainsEveryOption();
    void theVersionIsPrinted();
    void wrongArgumentsAreExplained_data();
    void wrongArgumentsAreExplained();
    void findingsAreLinesWithTheirCureBelow();
    void jsonCountsWhatWasFound();
};

void tst_doctor_program::helpExplainsEveryOption()
{
    const Doctor::Result result = Doctor({"--help"}).plainResult();
    QCOMPARE(result.exitCode, 0);
    for (const char* word : {"--name", "--advertise", "--serve", "--seconds", "--timeout", "--json",
                             "--verbose", "--help", "--version", "Exit codes"}) {
        QVERIFY2(result.output.contains(word), word);
    }
    QCOMPARE(result.errors, QString());
}

void tst_doctor_program::theVersionIsPrinted()
{
    const Doctor::Result result = Doctor({"--version"}).plainResult();
    QCOMPARE(result.output, "plim-ble-doctor " PLIM_VERSION "\n");
    QCOMPARE(result.exitCode, 0);
}

void tst_doctor_program::wrongArgumentsAreExplained_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("explanation");
    QTest::newRow("unknown option") << QStringList("--nothing") << "Unknown option 'nothing'.";
    QTest::newRow("stray word") << QStringList("word") << "unexpected argument 'word'";
    QTest::newRow("no seconds") << QStringList({"--seconds", "0"})
                                << "--seconds takes 1 to 3600 seconds, not '0'";
    QTest::newRow("too many") << QStringList({"--seconds", "3601"})
                              << "--seconds takes 1 to 3600 seconds, not '3601'";
    QTest::newRow("no number") << QStringList({"--timeout", "long"})
                               << "--timeout takes 1 to 3600 seconds, not 'long'";
}

void tst_doctor_program::wrongArgumentsAreExplained()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QString, explanation);
    const Doctor::Result result = Doctor(arguments).plainResult();
    QCOMPARE(result.exitCode, 2);
    QCOMPARE(result.errors, "plim-ble-doctor: " + explanation + ", see --help\n");
    QCOMPARE(result.output, QString());
}

void tst_doctor_program::findingsAreLinesWithTheirCureBelow()
{
    const PrivateBus bus;
    const Doctor::Result result = Doctor({}, bus.address()).plainResult();
    QCOMPARE(result.output,
             "ok       The system bus at " + bus.address() +
                 " answers.\n"
                 "problem  bluetoothd is not running, and the bus does not know how to start it.\n"
                 "    remedy: Install BlueZ (on Debian: apt install bluez) and start it: systemctl start "
                 "bluetooth\n"
                 "1 problem, 0 warnings\n");
    QCOMPARE(result.errors, QString());
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_program::jsonCountsWhatWasFound()
{
    Simulator simulator({"--adapter", "hci0", "--adapter", "hci1"});
    simulator.setProperty("/org/bluez/hci1", "org.bluez.Adapter1", "Powered", false);
    const Doctor::Result result = Doctor::examine();
    const QJsonObject whole = QJsonDocument::fromJson(result.output.toUtf8()).object();
    QCOMPARE(whole["problems"].toInt(), 1);
    QCOMPARE(whole["warnings"].toInt(), 3);
    QCOMPARE(whole["findings"].toArray().size(), result.findings.size());
    QCOMPARE(result.exitCode, 1);
}

QTEST_GUILESS_MAIN(tst_doctor_program)
#include "tst_doctor_program.moc"
