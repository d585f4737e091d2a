#include "Doctor.h"
#include "FullAdapter.h"
#include "PrivateBus.h"
#include "SimulatorScenario.h"

#include <QDBusConnectionInterface>
#include <QtTest>

namespace {

const QString application = QStringLiteral("/org/plim/doctor/device");
const QString advertisement = QStringLiteral("/org/plim/doctor/advertisement");
const QString service = QStringLiteral("9d0c5e6a-1f4b-4c8a-a3a1-706c696d0001");
const QString characteristic = QStringLiteral("9d0c5e6a-1f4b-4c8a-a3a1-706c696d0002");

QString characteristicPath()
{
    return application + '/' + QString(service).replace('-', '_') + '/' +
           QString(characteristic).replace('-', '_');
}

/** Begins a trial that the test ends, and waits until it is under way. */
std::unique_ptr<Doctor> beginTrial(const Simulator& simulator, const QStringList& options)
{
    auto doctor = std::make_unique<Doctor>(QStringList({"--json", "--seconds", "3600"}) + options);
    const bool began = QTest::qWaitFor(
        [&] { return simulator.applications().size() + simulator.advertisements().size() == options.size(); },
        30000);
    if (!began) {
        qFatal("the trial did not begin: %s", qPrintable(doctor->errors()));
    }
    return doctor;
}

} // namespace

/** What the doctor says when it registers something for a while. */
class tst_doctor_trial : public QObject
{
    Q_OBJECT

private slots:
    void whatIsServedCanBeRead();
    void servingAloneSaysThatNobodyFindsTheDevice();
    void whatIsAdvertisedIsWhatIsTold();
    void bothAreTriedAtOnceUnderTheName();
    void aRefusalIsAProblem();
    void noRoomForAnAdvertisementIsAProblem();
    void noAnswerIsAProblemInTheEnd();
    void aDaemonThatEndsIsAProblem();
    void anAdvertisementThatTheDaemonEndsIsAProblem();
    void nothingIsTriedWithoutTheDaemon();
    void nothingIsAdvertisedWhileTheAdapterIsOff();
    void nothingIsTriedWhileTheDaemonsCallsDoNotArrive();
    void verboseOnesPrintTheLibrarysLog();
};

void tst_doctor_trial::whatIsServedCanBeRead()
{
    const Simulator simulator;
    const std::unique_ptr<Doctor> doctor = beginTrial(simulator, {"--serve"});
    const QDBusMessage answer = Simulator::control(
        "Read", {QVariant::fromValue(QDBusObjectPath(characteristicPath())), QVariant::fromValue(ushort(0))});
    QCOMPARE(answer.arguments().value(0).toByteArray(), QByteArray("plim-ble-doctor"));
    EVENTUALLY_VERIFY(doctor->errors().contains("... 3600 s left\n"));
    doctor->interrupt();
    const Doctor::Result result = doctor->result();
    QCOMPARE(result.line("serve.read"), "ok The characteristic was read once.");
    QCOMPARE(result.finding("serve.read").values["reads"].toInt(), 1);
    QCOMPARE(result.exitCode, 0);
    EVENTUALLY_COMPARE(simulator.applications(), QStringList());
}

void tst_doctor_trial::servingAloneSaysThatNobodyFindsTheDevice()
{
    const Simulator simulator;
    const Doctor::Result result = Doctor::examine({"--serve", "--seconds", "1"});
    QCOMPARE(
        result.line("serve.registered"),
        "ok An application is registered for 1 s. A phone that connects to 00:AA:01:00:00:00 should now "
        "see "
        "the service 9d0c5e6a-1f4b-4c8a-a3a1-706c696d0001 with the characteristic "
        "9d0c5e6a-1f4b-4c8a-a3a1-706c696d0002, whose value is \"plim-ble-doctor\". Add --advertise so that "
        "the phone finds the device.");
    QCOMPARE(result.line("serve.read"), "ok Nobody has read the characteristic.");
    QVERIFY(!result.names.contains("advertise.registered"));
    QCOMPARE(result.exitCode, 0);
}

void tst_doctor_trial::whatIsAdvertisedIsWhatIsTold()
{
    const Simulator simulator;
    const std::unique_ptr<Doctor> doctor = beginTrial(simulator, {"--advertise"});
    const QVariantMap seen = simulator.advertisement(advertisement);
    QCOMPARE(seen["LocalName"].toString(), "plim-ble-doctor");
    QCOMPARE(seen["ServiceUUIDs"].toStringList(), QStringList(service));
    const Doctor::Result result = Doctor::examine({"--advertise", "--seconds", "1"});
    QCOMPARE(result.line("advertising.instances"), "ok hci0 accepts 4 more advertisements; 1 are active.");
    QCOMPARE(
        result.line("advertise.registered"),
        "ok An advertisement is registered for 1 s. A phone that scans should now see the name "
        "\"plim-ble-doctor\" at 00:AA:01:00:00:00, with the service 9d0c5e6a-1f4b-4c8a-a3a1-706c696d0001.");
    QVERIFY(!result.names.contains("serve.registered"));
    QCOMPARE(result.exitCode, 0);
}

void tst_doctor_trial::bothAreTriedAtOnceUnderTheName()
{
    const Simulator simulator;
    const QString name = "org.example.Doctored";
    const std::unique_ptr<Doctor> nameless = beginTrial(simulator, {"--advertise", "--serve"});
    QVERIFY(QDBusConnection::systemBus().interface()->isServiceRegistered("org.plim.Doctor"));
    Doctor named({"--json", "--advertise", "--serve", "--name", name, "--seconds", "3600"});
    QTRY_COMPARE_WITH_TIMEOUT(simulator.applications().size() + simulator.advertisements().size(), 4, 30000);
    QVERIFY(QDBusConnection::systemBus().interface()->isServiceRegistered(name));
    EVENTUALLY_VERIFY(named.errors().contains("s left\n"));
    named.interrupt();
    const Doctor::Result result = named.result();
    QCOMPARE(result.finding("name.owned").severity, "ok");
    const QString served = result.line("serve.registered");
    QVERIFY2(served.endsWith("whose value is \"plim-ble-doctor\"."), qPrintable(served));
    QCOMPARE(result.finding("advertise.registered").severity, "ok");
    QCOMPARE(result.exitCode, 0);
}

void tst_doctor_trial::aRefusalIsAProblem()
{
    Simulator simulator;
    simulator.answerWithError("RegisterAdvertisement", "org.bluez.Error.Failed",
                              "Failed to register advertisement");
    const Doctor::Result result = Doctor::examine({"--advertise", "--seconds", "1"});
    QCOMPARE(result.line("trial.refused"),
             "problem bluetoothd rejected the advertisement: Failed to register advertisement "
             "(org.bluez.Error.Failed) | Check its log: journalctl -u bluetooth");
    QCOMPARE(result.finding("trial.refused").values["error"].toString(), "org.bluez.Error.Failed");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_trial::noRoomForAnAdvertisementIsAProblem()
{
    const FullAdapter fullAdapter;
    const Doctor::Result result = Doctor::examine({"--advertise", "--seconds", "1"});
    QCOMPARE(result.line("advertise.full"), "problem bluetoothd accepts no more advertisements: Maximum "
                                            "advertisements reached | Stop another program that advertises. "
                                            "Only bluetoothd knows which programs do: stop them one by one.");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_trial::noAnswerIsAProblemInTheEnd()
{
    Simulator simulator;
    simulator.neverAnswer("RegisterApplication");
    simulator.neverAnswer("RegisterAdvertisement");
    const Doctor::Result result = Doctor::examine({"--advertise", "--serve", "--timeout", "8"});
    QCOMPARE(result.names.count("trial.silent"), 2);
    QCOMPARE(result.line("trial.silent"),
             "problem bluetoothd did not answer the registration of the application within 8 s. | Restart "
             "it: systemctl restart bluetooth");
    QCOMPARE(result.finding("calls.untold").severity, "warning");
    for (const char* line : {"... waiting for the answer to RegisterApplication\n",
                             "... waiting for the answer about the application and the advertisement\n"}) {
        QVERIFY2(result.errors.contains(line), qPrintable(result.errors));
    }
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_trial::aDaemonThatEndsIsAProblem()
{
    Simulator simulator;
    const std::unique_ptr<Doctor> doctor = beginTrial(simulator, {"--serve"});
    simulator.vanish();
    const Doctor::Result result = doctor->result();
    QCOMPARE(result.names.count("trial.lost"), 1);
    QCOMPARE(result.line("trial.lost"), "problem bluetoothd or its adapter disappeared during the trial. | "
                                        "Check its log: journalctl -u bluetooth");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_trial::anAdvertisementThatTheDaemonEndsIsAProblem()
{
    Simulator simulator;
    const std::unique_ptr<Doctor> doctor = beginTrial(simulator, {"--advertise"});
    simulator.releaseAdvertisement(advertisement);
    const Doctor::Result result = doctor->result();
    QCOMPARE(result.line("advertise.released"),
             "problem bluetoothd ended the advertisement early. | Check its log: journalctl -u bluetooth");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_trial::nothingIsTriedWithoutTheDaemon()
{
    const Simulator simulator({"--absent"});
    const Doctor::Result result = Doctor::examine({"--serve"});
    QCOMPARE(result.names, QStringList({"bus.reached", "daemon.absent", "trial.skipped"}));
    QCOMPARE(result.line("trial.skipped"),
             "warning Nothing was registered, because of the problems above. | Solve them and try again.");
}

void tst_doctor_trial::nothingIsAdvertisedWhileTheAdapterIsOff()
{
    Simulator simulator;
    simulator.setProperty("/org/bluez/hci0", "org.bluez.Adapter1", "Powered", false);
    QCOMPARE(Doctor::examine({"--advertise"}).finding("trial.skipped").severity, "warning");
    QVERIFY(simulator.calls().filter("RegisterAdvertisement").isEmpty());
}

void tst_doctor_trial::nothingIsTriedWhileTheDaemonsCallsDoNotArrive()
{
    const PrivateBus bus("<deny send_destination='org.example.Doctored'/>");
    const Companion simulator(Simulator::program(), {}, bus.address());
    const Doctor::Result result =
        Doctor::examine({"--serve", "--name", "org.example.Doctored"}, bus.address());
    QCOMPARE(result.finding("calls.blocked").severity, "problem");
    QCOMPARE(result.finding("trial.skipped").severity, "warning");
}

void tst_doctor_trial::verboseOnesPrintTheLibrarysLog()
{
    const Simulator simulator;
    const Doctor::Result verbose = Doctor::examine({"--advertise", "--seconds", "1", "--verbose"});
    QVERIFY2(verbose.errors.contains("Add advertisement: /org/plim/doctor/advertisement\n"),
             qPrintable(verbose.errors));
    QCOMPARE(verbose.finding("advertise.registered").severity, "ok");
    const Doctor::Result quiet = Doctor::examine({"--advertise", "--seconds", "1"});
    QVERIFY2(!quiet.errors.contains("Add advertisement"), qPrintable(quiet.errors));
    QVERIFY2(quiet.errors.contains("... 1 s left\n"), qPrintable(quiet.errors));
}

QTEST_GUILESS_MAIN(tst_doctor_trial)
#include "tst_doctor_trial.moc"
