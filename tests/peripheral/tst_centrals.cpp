#include "ObservedCentrals.h"

using namespace CentralsScenario;
using plim::Central;
using plim::Centrals;

/** Who is connected, as BlueZ tells it. */
class tst_centrals : public QObject, private ObservedCentrals
{
    Q_OBJECT

private slots:
    void init() { begin(); }
    void cleanup() { end(); }
    void aNewDeviceThatIsConnectedIsACentral();
    void aKnownDeviceConnects();
    void whoWasThereBeforeIsFound();
    void aSecondObjectKnowsAllAtOnce();
    void theEndHasAReason_data();
    void theEndHasAReason();
    void anOlderDaemonGivesNoReason();
    void aReasonCountsForOneEnd();
    void aForgottenDeviceIsDisconnected();
    void theDaemonsEndDisconnectsAll();
    void whatBluezShowsIsTold();
    void otherChangesAreNotTold();
    void theMtuComesWithARequest();
    void aRequestBeforeTheDescriptionTellsTheMtu();
    void theLongestValueIsKnownWhenTheMtuIsTold();
    void theMtuStaysWhenAnotherInterfaceGoes();
    void strangersTellNothing();
    void classicDevicesAreNoCentrals();
    void aRequestTellsTheKindOfLink();
    void theBearerTellsTheKindOfLink();
    void onlyTheChosenAdapterCounts_data();
    void onlyTheChosenAdapterCounts();
    void theChosenAdapterMayComeLater();
};

void tst_centrals::aNewDeviceThatIsConnectedIsACentral()
{
    start();
    m_bluez->add(phonePath, phone());
    QCOMPARE(told(), QStringList("+ " + phonePath));
    QCOMPARE(m_centrals->connected(), QList<Central>{Central(phonePath)});
    QVERIFY(m_centrals->find(Central(tabletPath)).isNull());
}

void tst_centrals::aKnownDeviceConnects()
{
    start();
    m_bluez->add(phonePath, phone({{"Connected"_qs, false}}));
    QCOMPARE(told(), QStringList());
    m_bluez->change(phonePath, device, {{"Connected"_qs, true}});
    QCOMPARE(told(), QStringList("+ " + phonePath));
    m_bluez->change(phonePath, device, {{"Connected"_qs, false}, {"ServicesResolved"_qs, false}});
    QCOMPARE(told(), QStringList("- " + phonePath + " Unknown"));
    m_bluez->change(phonePath, device, {{"Connected"_qs, true}});
    QCOMPARE(told(), QStringList("+ " + phonePath));
}

void tst_centrals::whoWasThereBeforeIsFound()
{
    m_bluez->objects.insert(QDBusObjectPath(phonePath), phone());
    m_bluez->objects.insert(QDBusObjectPath(tabletPath), phone({{"Connected"_qs, false}}));
    start();
    QCOMPARE(told(), QStringList("+ " + phonePath));
}

void tst_centrals::aSecondObjectKnowsAllAtOnce()
{
    start();
    m_bluez->add(phonePath, phone());
    QCOMPARE(told().size(), 1);
    QCOMPARE(Centrals().connected(), QList<Central>{Central(phonePath)});
}

void tst_centrals::theEndHasAReason_data()
{
    QTest::addColumn<QString>("told");
    QTest::newRow("Timeout") << "org.bluez.Reason.Timeout"_qs;
    QTest::newRow("Local") << "org.bluez.Reason.Local"_qs;
    QTest::newRow("Remote") << "org.bluez.Reason.Remote"_qs;
    QTest::newRow("Authentication") << "org.bluez.Reason.Authentication"_qs;
    QTest::newRow("Suspend") << "org.bluez.Reason.Suspend"_qs;
    QTest::newRow("Unknown") << "org.bluez.Reason.New"_qs;
}

void tst_centrals::theEndHasAReason()
{
    QFETCH(QString, told);
    start();
    m_bluez->add(phonePath, phone());
    m_bluez->endLink(phonePath, told);
    m_bluez->change(phonePath, device, {{"Connected"_qs, false}});
    QCOMPARE(this->told(), QStringList({"+ " + phonePath, "- " + phonePath + ' ' + QTest::currentDataTag()}));
}

void tst_centrals::anOlderDaemonGivesNoReason()
{
    start();
    m_bluez->add(phonePath, phone());
    m_bluez->change(phonePath, device, {{"Connected"_qs, false}});
    QCOMPARE(told(), QStringList({"+ " + phonePath, "- " + phonePath + " Unknown"}));
}

void tst_centrals::aReasonCountsForOneEnd()
{
    start();
    m_bluez->add(phonePath, phone());
    m_bluez->endLink(phonePath, "org.bluez.Reason.Remote"_qs);
    m_bluez->change(phonePath, device, {{"Connected"_qs, false}});
    m_bluez->endLink(phonePath, "org.bluez.Reason.Remote"_qs);
    m_bluez->change(phonePath, device, {{"Connected"_qs, true}});
    m_bluez->change(phonePath, device, {{"Connected"_qs, false}});
    QCOMPARE(told().constLast(), "- " + phonePath + " Unknown");
}

void tst_centrals::aForgottenDeviceIsDisconnected()
{
    start();
    m_bluez->add(phonePath, phone());
    m_bluez->remove(phonePath, {device});
    QCOMPARE(told(), QStringList({"+ " + phonePath, "- " + phonePath + " Unknown"}));
}

void tst_centrals::theDaemonsEndDisconnectsAll()
{
    start();
    m_bluez->add(phonePath, phone());
    m_bluez->add(tabletPath, phone());
    QCOMPARE(told().size(), 2);
    m_bluez->vanish();
    EVENTUALLY_COMPARE(m_record->lines,
                       QStringList({"- " + tabletPath + " Unknown", "- " + phonePath + " Unknown"}));
    m_record->lines.clear();
    m_bluez->objects.insert(QDBusObjectPath(phonePath), phone());
    start();
    QCOMPARE(told(), QStringList("+ " + phonePath));
}

void tst_centrals::whatBluezShowsIsTold()
{
    start();
    m_bluez->add(phonePath, phone());
    QCOMPARE(told().size(), 1);
    Central central = m_centrals->connected().constFirst();
    QCOMPARE(central.address(), "00:AA:01:01:00:01"_qs);
    QVERIFY(central.addressType() == Central::AddressType::Random);
    QVERIFY(central.name().isEmpty() && !central.isPaired() && !central.isBonded() && !central.isTrusted());
    QCOMPARE(central.mtu(), 0);
    m_bluez->change(phonePath, device, {{"Name"_qs, "My phone"_qs}});
    m_bluez->change(phonePath, device, {{"Paired"_qs, true}, {"Bonded"_qs, true}});
    m_bluez->change(phonePath, device, {{"Trusted"_qs, true}, {"AddressType"_qs, "public"_qs}});
    QCOMPARE(told(), QStringList({"= " + phonePath, "= " + phonePath, "= " + phonePath}));
    central = m_centrals->find(Central(phonePath));
    QCOMPARE(central.name(), "My phone"_qs);
    QVERIFY(central.isPaired() && central.isBonded() && central.isTrusted());
    QVERIFY(central.addressType() == Central::AddressType::Public);
}

void tst_centrals::otherChangesAreNotTold()
{
    start();
    m_bluez->add(phonePath, phone());
    m_bluez->change(phonePath, device, {{"RSSI"_qs, -60}, {"Paired"_qs, false}});
    m_bluez->add(phonePath, {{"org.bluez.Battery1"_qs, {}}});
    QCOMPARE(told(), QStringList("+ " + phonePath));
}

void tst_centrals::theMtuComesWithARequest()
{
    const Attributes tree;
    start();
    m_bluez->add(phonePath, phone());
    m_bluez->read(tree.characteristic->dbusPath(), phonePath, "LE"_qs, 185);
    QCOMPARE(told(), QStringList({"+ " + phonePath, "= " + phonePath}));
    QCOMPARE(m_centrals->connected().constFirst().mtu(), 185);
    m_bluez->change(phonePath, device, {{"Connected"_qs, false}});
    m_bluez->change(phonePath, device, {{"Connected"_qs, true}});
    settle();
    QCOMPARE(m_centrals->connected().constFirst().mtu(), 0);
}

/** BlueZ tells it with requests only, and a central may send no other one. */
void tst_centrals::aRequestBeforeTheDescriptionTellsTheMtu()
{
    const Attributes tree;
    tree.characteristic->trackSubscribers();
    m_bluez->objects = {{QDBusObjectPath(hci0), adapterAt("00:AA:01:00:00:00")},
                        {QDBusObjectPath(phonePath), phone()}};
    m_bluez->holdsDescription = true;
    QVERIFY(m_bluez->appear());
    QTRY_COMPARE(m_bluez->calls.size(), 1);
    const QDBusPendingCall read = m_bluez->call(tree.characteristic->dbusPath(), "ReadValue"_qs,
                                                {FakeBluez::options(phonePath, "LE"_qs, 185)});
    QTRY_VERIFY(read.isFinished());
    m_bluez->send(m_bluez->description(m_bluez->calls.constFirst()));
    QCOMPARE(told(), QStringList({"+ " + phonePath, "= " + phonePath}));
    QCOMPARE(m_centrals->connected().constFirst().mtu(), 185);
    QCOMPARE(tree.characteristic->maximumLength(Central(phonePath)), 182);
}

void tst_centrals::theLongestValueIsKnownWhenTheMtuIsTold()
{
    const Attributes tree;
    tree.characteristic->trackSubscribers();
    int length = 0;
    QObject context;
    connect(m_centrals.get(), &Centrals::centralChanged, &context,
            [&](const Central& central) { length = tree.characteristic->maximumLength(central); });
    start();
    m_bluez->add(phonePath, phone());
    m_bluez->read(tree.characteristic->dbusPath(), phonePath, "LE"_qs, 185);
    settle();
    QCOMPARE(length, 182);
}

void tst_centrals::theMtuStaysWhenAnotherInterfaceGoes()
{
    const Attributes tree;
    tree.characteristic->trackSubscribers();
    start();
    m_bluez->add(phonePath, phone());
    m_bluez->read(tree.characteristic->dbusPath(), phonePath, "LE"_qs, 185);
    m_bluez->add(phonePath, {{"org.bluez.Battery1"_qs, {}}});
    m_bluez->remove(phonePath, {"org.bluez.Battery1"_qs});
    settle();
    QCOMPARE(tree.characteristic->maximumLength(Central(phonePath)), 182);
    QCOMPARE(m_centrals->connected().constFirst().mtu(), 185);
}

void tst_centrals::strangersTellNothing()
{
    const Attributes tree;
    start();
    m_bluez->add(phonePath, phone());
    settle();
    Caller stranger;
    stranger.read("/app/aaaa/c0"_qs);
    FakeBluez other("other"_qs);
    other.add(tabletPath, phone());
    other.endLink(phonePath, "org.bluez.Reason.Remote"_qs);
    m_bluez->change(phonePath, device, {{"Connected"_qs, false}});
    QCOMPARE(told(), QStringList({"+ " + phonePath, "- " + phonePath + " Unknown"}));
}

void tst_centrals::classicDevicesAreNoCentrals()
{
    start();
    m_bluez->add(phonePath, phone({{"AddressType"_qs, "public"_qs}, {"Class"_qs, 0x5a020cU}}));
    m_bluez->add(tabletPath, phone({{"AddressType"_qs, "public"_qs}}));
    QCOMPARE(told(), QStringList("+ " + tabletPath));
}

void tst_centrals::aRequestTellsTheKindOfLink()
{
    const Attributes tree;
    start();
    m_bluez->add(phonePath, phone({{"AddressType"_qs, "public"_qs}, {"Class"_qs, 0x5a020cU}}));
    m_bluez->read(tree.characteristic->dbusPath(), phonePath, "LE"_qs, 185);
    QCOMPARE(told(), QStringList("+ " + phonePath));
    m_bluez->read(tree.characteristic->dbusPath(), phonePath, "BR/EDR"_qs, 185);
    QCOMPARE(told(), QStringList("- " + phonePath + " Unknown"));
}

void tst_centrals::theBearerTellsTheKindOfLink()
{
    start();
    const QString bearer = "org.bluez.Bearer.LE1"_qs;
    DBusInterfaceList both = phone();
    both[bearer] = {{"Connected"_qs, false}};
    m_bluez->add(phonePath, both);
    QCOMPARE(told(), QStringList());
    m_bluez->change(phonePath, bearer, {{"Connected"_qs, true}});
    QCOMPARE(told(), QStringList("+ " + phonePath));
    m_bluez->endLink(phonePath, "org.bluez.Reason.Timeout"_qs);
    m_bluez->change(phonePath, bearer, {{"Connected"_qs, false}});
    m_bluez->change(phonePath, device, {{"Connected"_qs, false}});
    QCOMPARE(told(), QStringList("- " + phonePath + " Timeout"));
}

void tst_centrals::onlyTheChosenAdapterCounts_data()
{
    QTest::addColumn<QString>("choice");
    QTest::newRow("name") << "hci1"_qs;
    QTest::newRow("address") << "00:aa:01:00:00:01"_qs;
}

void tst_centrals::onlyTheChosenAdapterCounts()
{
    QFETCH(QString, choice);
    start();
    const Centrals chosen(choice);
    const Record record(chosen);
    m_bluez->add(phonePath, phone());
    m_bluez->add(hci1 + "/dev_1"_qs, phone({}, hci1));
    QCOMPARE(told().size(), 2);
    QCOMPARE(record.lines, QStringList("+ " + hci1 + "/dev_1"_qs));
}

void tst_centrals::theChosenAdapterMayComeLater()
{
    appear();
    const Centrals chosen("00:AA:01:00:00:07"_qs);
    const Record record(chosen);
    m_bluez->add("/org/bluez/hci7/dev_1"_qs, phone({}, "/org/bluez/hci7"_qs));
    settle();
    QCOMPARE(record.lines, QStringList());
    m_bluez->add("/org/bluez/hci7"_qs, adapterAt("00:AA:01:00:00:07"));
    settle();
    QCOMPARE(record.lines, QStringList("+ /org/bluez/hci7/dev_1"_qs));
    m_bluez->remove("/org/bluez/hci7"_qs, {adapter});
    settle();
    QCOMPARE(record.lines.constLast(), "- /org/bluez/hci7/dev_1 Unknown"_qs);
}

QTEST_GUILESS_MAIN(tst_centrals)
#include "tst_centrals.moc"
