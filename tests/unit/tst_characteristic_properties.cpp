#include "GattTree.h"
#include "LogCapture.h"

#include <QSignalSpy>
#include <QtTest>

class tst_characteristic_properties : public QObject
{
    Q_OBJECT

private slots:
    void flagsAreTheWordsForTheOptionBits_data();
    void flagsAreTheWordsForTheOptionBits();
    void startAndStopNotifyTellEachTime();
    void notifyingFollowsTheLastCall();
    void confirmChangesNothing();
    void nothingIsNotifiedBeforeStartNotify();
    void eachChangeIsNotifiedOnceWithTheWholeValue();
    void theCallerMayNotifyByHand();
    void getReadsThePropertyOfItsOwnInterfaceOnly();
    void getAllListsThePropertiesOfItsOwnInterfaceOnly();
    void setChangesNoDeclaredProperty();
    void setOfAnUndeclaredNameMakesADynamicProperty();
    void setOfAnotherInterfaceDoesNothing();
    void theEntryForManagedObjectsHoldsEveryProperty();
    void descriptorsComeInOrderOfTheirUuidStrings();
    void deletingADescriptorTellsOnce();
    void deletingADisplacedDescriptorTellsNothing();
};

void tst_characteristic_properties::flagsAreTheWordsForTheOptionBits_data()
{
    QTest::addColumn<int>("option");
    QTest::addColumn<QStringList>("flags");
    const QString read = "read"_qs;
    const QString write = "write"_qs;
    const QString notify = "notify"_qs;
    QTest::newRow("none") << 0 << QStringList();
    QTest::newRow("read") << 1 << QStringList{read};
    QTest::newRow("write") << 2 << QStringList{write};
    QTest::newRow("read write") << 3 << QStringList{read, write};
    QTest::newRow("notify") << 4 << QStringList{notify};
    QTest::newRow("read notify") << 5 << QStringList{read, notify};
    QTest::newRow("write notify") << 6 << QStringList{write, notify};
    QTest::newRow("all") << 7 << QStringList{read, write, notify};
    QTest::newRow("foreign bits") << 0x7ffffff8 << QStringList();
    QTest::newRow("every bit") << -1 << QStringList{read, write, notify};
}

void tst_characteristic_properties::flagsAreTheWordsForTheOptionBits()
{
    QFETCH(int, option);
    GattTree tree;
    QTEST(tree.service->createCharacteristic("f0"_qs, GattCharacteristic::Option(option), nullptr)->flags(),
          "flags");
}

void tst_characteristic_properties::startAndStopNotifyTellEachTime()
{
    GattTree tree;
    const QSignalSpy told(tree.plain, &GattCharacteristic::notifyStateChanged);
    tree.plain->StopNotify();
    tree.plain->StartNotify();
    tree.plain->StartNotify();
    tree.plain->StopNotify();
    const QList<QList<QVariant>>& states = told;
    QCOMPARE(states, (QList<QList<QVariant>>{{false}, {true}, {true}, {false}}));
}

void tst_characteristic_properties::notifyingFollowsTheLastCall()
{
    GattTree tree;
    GattCharacteristic* silent =
        tree.service->createCharacteristic("f0"_qs, GattCharacteristic::Read, nullptr);
    QVERIFY(!silent->notifying());
    bool whileTold = false;
    connect(silent, &GattCharacteristic::notifyStateChanged, silent,
            [&] { whileTold = silent->notifying(); });
    silent->StartNotify(); // whatever its flags say
    QVERIFY(whileTold);
    QVERIFY(silent->notifying());
    silent->setValue("x");
    QVERIFY(silent->notifying());
    silent->StopNotify();
    QVERIFY(!silent->notifying());
}

void tst_characteristic_properties::confirmChangesNothing()
{
    GattTree tree;
    tree.plain->StartNotify();
    const QSignalSpy state(tree.plain, &GattCharacteristic::notifyStateChanged);
    const QSignalSpy notified(tree.plain, &GattCharacteristic::PropertiesChanged);
    tree.plain->Confirm();
    QVERIFY(tree.plain->notifying());
    QCOMPARE(state.size() + notified.size(), 0);
}

void tst_characteristic_properties::nothingIsNotifiedBeforeStartNotify()
{
    GattTree tree;
    const QSignalSpy notified(tree.plain, &GattCharacteristic::PropertiesChanged);
    tree.plain->setValue("pushed");
    tree.plain->WriteValue("written", {});
    tree.plain->notifyValueChanged();
    tree.plain->StartNotify();
    tree.plain->StopNotify();
    tree.plain->setValue("pushed again");
    QCOMPARE(notified.size(), 0);
}

void tst_characteristic_properties::eachChangeIsNotifiedOnceWithTheWholeValue()
{
    GattTree tree;
    tree.paged->StartNotify();
    const QSignalSpy notified(tree.paged, &GattCharacteristic::PropertiesChanged);
    tree.paged->setValue(numberedBytes(1300));
    tree.control->WriteValue("1", {});
    tree.paged->ReadValue({});
    tree.paged->WriteValue("end", at(3));
    QCOMPARE(notified.size(), 2);
    const QVariantMap pushed{{"Value"_qs, numberedBytes(1300)}};
    const QVariantMap written{{"Value"_qs, QByteArray(numberedBytes(515) + "end")}};
    QCOMPARE(notified.at(0), (QList<QVariant>{characteristicInterface(), pushed, QStringList()}));
    QCOMPARE(notified.at(1), (QList<QVariant>{characteristicInterface(), written, QStringList()}));
}

void tst_characteristic_properties::theCallerMayNotifyByHand()
{
    GattTree tree;
    tree.plain->setValue("v");
    tree.plain->StartNotify();
    const QSignalSpy notified(tree.plain, &GattCharacteristic::PropertiesChanged);
    tree.plain->notifyValueChanged();
    QCOMPARE(notified.size(), 1);
}

void tst_characteristic_properties::getReadsThePropertyOfItsOwnInterfaceOnly()
{
    GattTree tree;
    const auto get = [&](const QString& interface, const QString& name) {
        return tree.plain->Get(interface, name).variant();
    };
    tree.plain->setValue("value");
    QCOMPARE(get(characteristicInterface(), "Value"_qs), QVariant(QByteArray()));
    tree.plain->ReadValue(at(2));
    QCOMPARE(get(characteristicInterface(), "Value"_qs), QVariant(QByteArray("lue")));
    QCOMPARE(get(characteristicInterface(), "UUID"_qs), QVariant("e0"_qs));
    QCOMPARE(get(characteristicInterface(), "Notifying"_qs), QVariant(false));
    QCOMPARE(get(characteristicInterface(), "Service"_qs).value<QDBusObjectPath>().path(),
             "/app/aaaa_bbbb"_qs);
    QVERIFY(!get(characteristicInterface(), "uuid"_qs).isValid());
    QVERIFY(!get(characteristicInterface(), QString()).isValid());
    QVERIFY(!get(descriptorInterface(), "Value"_qs).isValid());
    QVERIFY(!get("org.bluez.gattcharacteristic1"_qs, "Value"_qs).isValid());
    QVERIFY(!get(QString(), "Value"_qs).isValid());
}

void tst_characteristic_properties::getAllListsThePropertiesOfItsOwnInterfaceOnly()
{
    GattTree tree;
    QCOMPARE(tree.plain->GetAll(characteristicInterface()).keys(),
             (QStringList{"Flags"_qs, "Notifying"_qs, "Service"_qs, "UUID"_qs, "Value"_qs}));
    QVERIFY(tree.plain->GetAll(descriptorInterface()).isEmpty());
    QVERIFY(tree.plain->GetAll(QString()).isEmpty());
}

void tst_characteristic_properties::setChangesNoDeclaredProperty()
{
    GattTree tree;
    const auto before = tree.plain->dbusInterfaceList();
    for (const QString& name : {"Flags"_qs, "Notifying"_qs, "Service"_qs, "UUID"_qs, "Value"_qs}) {
        tree.plain->Set(characteristicInterface(), name, QDBusVariant(true));
    }
    QVERIFY(!tree.plain->notifying());
    QCOMPARE(tree.plain->dbusInterfaceList(), before);
    QVERIFY(tree.plain->dynamicPropertyNames().isEmpty());
}

void tst_characteristic_properties::setOfAnUndeclaredNameMakesADynamicProperty()
{
    GattTree tree;
    const QString name = "Größe"_qs;
    tree.plain->Set(characteristicInterface(), name, QDBusVariant(12));
    QCOMPARE(tree.plain->property("Größe"), QVariant(12));
    QCOMPARE(tree.plain->Get(characteristicInterface(), name).variant(), QVariant(12));
    QVERIFY(!tree.plain->GetAll(characteristicInterface()).contains(name));
}

void tst_characteristic_properties::setOfAnotherInterfaceDoesNothing()
{
    GattTree tree;
    tree.plain->Set(descriptorInterface(), "Other"_qs, QDBusVariant(1));
    QVERIFY(tree.plain->dynamicPropertyNames().isEmpty());
}

void tst_characteristic_properties::theEntryForManagedObjectsHoldsEveryProperty()
{
    GattTree tree;
    tree.plain->setValue("value");
    tree.plain->ReadValue({});
    tree.plain->StartNotify();
    const DBusInterfaceList interfaces = tree.plain->dbusInterfaceList();
    QCOMPARE(interfaces.keys(), QStringList(characteristicInterface()));
    const QVariantMap& properties = interfaces.first();
    QCOMPARE(properties.keys(),
             (QStringList{"Flags"_qs, "Notifying"_qs, "Service"_qs, "UUID"_qs, "Value"_qs}));
    QCOMPARE(properties.value("Flags"_qs), QVariant(QStringList{"read"_qs, "write"_qs, "notify"_qs}));
    QCOMPARE(properties.value("Notifying"_qs), QVariant(true));
    QCOMPARE(properties.value("Service"_qs).value<QDBusObjectPath>(), QDBusObjectPath("/app/aaaa_bbbb"_qs));
    QCOMPARE(properties.value("UUID"_qs), QVariant("e0"_qs));
    QCOMPARE(properties.value("Value"_qs), QVariant(QByteArray("value")));
}

void tst_characteristic_properties::descriptorsComeInOrderOfTheirUuidStrings()
{
    GattTree tree;
    GattDescriptor* b = tree.control->addDescriptor("b"_qs, GattDescriptor::Read);
    GattDescriptor* two = tree.control->addDescriptor("2"_qs, GattDescriptor::Read);
    GattDescriptor* ten = tree.control->addDescriptor("10"_qs, GattDescriptor::Read);
    QCOMPARE(tree.control->descriptors(), (QList<GattDescriptor*>{ten, two, b}));
}

void tst_characteristic_properties::deletingADescriptorTellsOnce()
{
    GattTree tree;
    const QSignalSpy changed(tree.plain, &GattCharacteristic::handlesChanged);
    delete tree.descriptor;
    QCOMPARE(changed.size(), 1);
    QVERIFY(tree.plain->descriptors().isEmpty());
}

void tst_characteristic_properties::deletingADisplacedDescriptorTellsNothing()
{
    GattTree tree;
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    GattDescriptor* second = tree.plain->addDescriptor("2901"_qs, GattDescriptor::Read);
    const QSignalSpy changed(tree.plain, &GattCharacteristic::handlesChanged);
    // Both are exported, each at a path of its own.
    QCOMPARE(log.lines().size(), 0);
    delete tree.descriptor;
    QCOMPARE(changed.size(), 0);
    QCOMPARE(tree.plain->descriptors(), QList<GattDescriptor*>{second});
}

QTEST_GUILESS_MAIN(tst_characteristic_properties)
#include "tst_characteristic_properties.moc"
