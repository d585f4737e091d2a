#include "Attributes.h"
#include "FakeBluez.h"
#include "Literals.h"

#include <QDBusConnectionInterface>
#include <QPointer>
#include <QSignalSpy>
#include <QtTest>

using plim::Central;
using plim::Centrals;

namespace {

const QString device = QStringLiteral("org.bluez.Device1");
const QString adapter = QStringLiteral("org.bluez.Adapter1");
const QString hci0 = QStringLiteral("/org/bluez/hci0");
const QString hci1 = QStringLiteral("/org/bluez/hci1");

/** What BlueZ shows of a phone. */
DBusInterfaceList phone(const QVariantMap& more = {}, const QString& adapterPath = hci0)
{
    QVariantMap properties{{"Adapter"_qs, QVariant::fromValue(QDBusObjectPath(adapterPath))},
                           {"Address"_qs, "00:AA:01:01:00:01"_qs},
                           {"AddressType"_qs, "random"_qs},
                           {"Connected"_qs, true},
                           {"Paired"_qs, false},
                           {"Bonded"_qs, false},
                           {"Trusted"_qs, false}};
    for (auto property = more.cbegin(); property != more.cend(); ++property) {
        properties.insert(property.key(), *property);
    }
    return {{device, properties}};
}

DBusInterfaceList adapterAt(const char* address)
{
    return {{adapter, {{"Address"_qs, QString::fromLatin1(address)}}}};
}

/** Writes down what is told, in its order. */
struct Record
{
    explicit Record(const Centrals& centrals)
    {
        QObject::connect(&centrals, &Centrals::centralConnected, &context,
                         [this](const Central& central) { lines << "+ " + central.path(); });
        QObject::connect(&centrals, &Centrals::centralChanged, &context,
                         [this](const Central& central) { lines << "= " + central.path(); });
        QObject::connect(&centrals, &Centrals::centralDisconnected, &context,
                         [this](const Central& central, Centrals::Reason reason) {
                             lines << "- " + central.path() + ' ' + QVariant::fromValue(reason).toString();
                         });
    }

    QObject context;
    QStringList lines;
};

} // namespace

class tst_centrals : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
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
    void strangersTellNothing();
    void classicDevicesAreNoCentrals();
    void aRequestTellsTheKindOfLink();
    void theBearerTellsTheKindOfLink();
    void onlyTheChosenAdapterCounts_data();
    void onlyTheChosenAdapterCounts();
    void theChosenAdapterMayComeLater();
    void disconnectingReachesTheDaemon();
    void whoIsNotConnectedIsNotDisconnected();
    void slotsMayDeleteTheObject_data();
    void slotsMayDeleteTheObject();
    void theObjectMayEndWithADisconnectionUnderWay();

private:
    void start()
    {
        m_bluez->objects.insert(QDBusObjectPath(hci0), adapterAt("00:AA:01:00:00:00"));
        m_bluez->objects.insert(QDBusObjectPath(hci1), adapterAt("00:AA:01:00:00:01"));
        appear();
    }
    void appear()
    {
        const int before = m_bluez->descriptions;
        QVERIFY(m_bluez->appear());
        QTRY_COMPARE(m_bluez->descriptions, before + 1);
    }
    /** Waits until what the daemon has said before is known. */
    void settle()
    {
        m_bluez->add("/marker"_qs, phone());
        QTRY_VERIFY(m_record->lines.contains("+ /marker"_qs));
        m_record->lines.removeAll("+ /marker"_qs);
        m_bluez->remove("/marker"_qs, {device});
        QTRY_VERIFY(m_record->lines.contains("- /marker Unknown"_qs));
        m_record->lines.removeAll("- /marker Unknown"_qs);
    }
    QStringList told()
    {
        settle();
        return std::exchange(m_record->lines, {});
    }

    std::unique_ptr<FakeBluez> m_bluez;
    std::unique_ptr<Centrals> m_centrals;
    std::unique_ptr<Record> m_record;
};

void tst_centrals::init()
{
    m_bluez = std::make_unique<FakeBluez>("fake"_qs);
    m_centrals = std::make_unique<Centrals>();
    m_record = std::make_unique<Record>(*m_centrals);
}

void tst_centrals::cleanup()
{
    m_record.reset();
    m_centrals.reset();
    m_bluez.reset();
    QTRY_VERIFY(!QDBusConnection::systemBus().interface()->isServiceRegistered("org.bluez"_qs).value());
}

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
    QTRY_COMPARE(m_record->lines,
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

void tst_centrals::disconnectingReachesTheDaemon()
{
    start();
    m_bluez->add(phonePath, phone());
    QCOMPARE(told().size(), 1);
    QStringList ends;
    const auto note = [&ends](const QDBusError& error) {
        ends << (error.isValid() ? error.name() : "done"_qs);
    };
    m_centrals->disconnect(Central(phonePath), note);
    m_centrals->disconnect(Central(phonePath), note);
    m_centrals->disconnect(Central(phonePath), [](const QDBusError&) { throw 1; });
    QTRY_COMPARE(m_bluez->calls.size(), 3);
    const QDBusMessage& call = m_bluez->calls.constFirst();
    QCOMPARE(call.path() + ' ' + call.interface() + '.' + call.member() + call.signature(),
             phonePath + " org.bluez.Device1.Disconnect"_qs);
    m_bluez->send(call.createReply());
    m_bluez->send(m_bluez->calls.at(1).createErrorReply("org.bluez.Error.Failed"_qs, "No"_qs));
    m_bluez->send(m_bluez->calls.at(2).createReply());
    QTRY_COMPARE(ends, QStringList({"done"_qs, "org.bluez.Error.Failed"_qs}));
    QCOMPARE(m_centrals->connected().size(), 1); // until the daemon says otherwise
}

void tst_centrals::whoIsNotConnectedIsNotDisconnected()
{
    start();
    m_bluez->add(phonePath, phone({{"Connected"_qs, false}}));
    settle();
    QStringList ends;
    for (const QString& path : {phonePath, tabletPath, QString(), "no path"_qs}) {
        m_centrals->disconnect(Central(path), [&ends](const QDBusError& error) { ends << error.name(); });
    }
    m_centrals->disconnect(Central());
    QVERIFY(ends.isEmpty());
    QTRY_COMPARE(ends.size(), 4);
    QCOMPARE(ends.count("org.bluez.Error.NotConnected"_qs), 4);
    QVERIFY(m_bluez->calls.isEmpty());
}

void tst_centrals::slotsMayDeleteTheObject_data()
{
    QTest::addColumn<QString>("signal");
    for (const char* signal : {"centralConnected", "centralChanged", "centralDisconnected"}) {
        QTest::newRow(signal) << QString::fromLatin1(signal);
    }
}

void tst_centrals::slotsMayDeleteTheObject()
{
    QFETCH(QString, signal);
    const QPointer<Centrals> victim = new Centrals("hci0"_qs);
    const auto end = [victim] { delete victim.data(); };
    connect(victim, &Centrals::centralConnected, this,
            [=] { signal == "centralConnected"_qs ? end() : void(); });
    connect(victim, &Centrals::centralChanged, this, [=] { signal == "centralChanged"_qs ? end() : void(); });
    connect(victim, &Centrals::centralDisconnected, this,
            [=] { signal == "centralDisconnected"_qs ? end() : void(); });
    start();
    m_bluez->add(phonePath, phone());
    m_bluez->add(tabletPath, phone());
    m_bluez->change(phonePath, device, {{"Trusted"_qs, true}});
    m_bluez->change(hci0, adapter, {{"Address"_qs, "00:AA:01:00:00:09"_qs}});
    m_bluez->vanish();
    QTRY_VERIFY(!victim);
    QTRY_VERIFY(m_centrals->connected().isEmpty());
}

void tst_centrals::theObjectMayEndWithADisconnectionUnderWay()
{
    start();
    m_bluez->add(phonePath, phone());
    settle();
    bool called = false;
    auto ending = std::make_unique<Centrals>();
    ending->disconnect(Central(phonePath), [&](const QDBusError&) { called = true; });
    ending->disconnect(Central(tabletPath), [&](const QDBusError&) { called = true; });
    ending.reset();
    QTRY_COMPARE(m_bluez->calls.size(), 1);
    m_bluez->send(m_bluez->calls.constFirst().createReply());
    settle();
    QVERIFY(!called);
}

QTEST_GUILESS_MAIN(tst_centrals)
#include "tst_centrals.moc"
