#include "GattTree.h"
#include "LogCapture.h"

#include <QSignalSpy>
#include <QtTest>

class tst_gatt_service : public QObject
{
    Q_OBJECT

private slots:
    void anEmptyServiceIsOneManagedObject_data();
    void anEmptyServiceIsOneManagedObject();
    void propertiesAreReadByName();
    void characteristicsComeInOrderOfTheirUuidStrings();
    void characteristicPathsStartWithTheirServices();
    void createCharacteristicTellsThatHandlesChanged();
    void aSecondCharacteristicWithTheUuidTakesThePlaceOfTheFirst();
    void deletingADisplacedCharacteristicTellsNothing();
    void deletingACharacteristicTellsOnce();
    void changesOfDescriptorsArePassedOn();
    void aUuidThatIsNoPathElementFailsToExportOnly();
};

void tst_gatt_service::anEmptyServiceIsOneManagedObject_data()
{
    QTest::addColumn<bool>("primary");
    QTest::newRow("primary") << true;
    QTest::newRow("secondary") << false;
}

void tst_gatt_service::anEmptyServiceIsOneManagedObject()
{
    QFETCH(bool, primary);
    GattApplication app(nullptr, "/app"_qs, QString());
    const GattService* service = app.createService("1-2"_qs, primary);
    const DBusInterfaceList interfaces{
        {serviceInterface(), {{"Primary"_qs, primary}, {"UUID"_qs, "1-2"_qs}}}};
    QCOMPARE(service->dbusInterfaceList(), interfaces);
    QCOMPARE(app.GetManagedObjects(), (DBusManagedObjectList{{QDBusObjectPath("/app/1_2"_qs), interfaces}}));
    QCOMPARE(service->primary(), primary);
}

void tst_gatt_service::propertiesAreReadByName()
{
    const GattTree tree;
    QCOMPARE(tree.service->property("UUID"), QVariant("aaaa-bbbb"_qs));
    QCOMPARE(tree.service->property("Primary"), QVariant(true));
    QVERIFY(!tree.service->setProperty("UUID", "other"_qs));
    QCOMPARE(tree.service->uUID(), "aaaa-bbbb"_qs);
}

void tst_gatt_service::characteristicsComeInOrderOfTheirUuidStrings()
{
    GattApplication app(nullptr, "/app"_qs, QString());
    GattService* service = app.createService("1"_qs, true);
    GattCharacteristic* two = service->createCharacteristic("2"_qs, readWrite, nullptr);
    GattCharacteristic* ten = service->createCharacteristic("10"_qs, readWrite, nullptr);
    QCOMPARE(service->characteristics(), (QList<GattCharacteristic*>{ten, two}));
}

void tst_gatt_service::characteristicPathsStartWithTheirServices()
{
    GattApplication app(nullptr, "/app"_qs, QString());
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    const QStringList paths{
        app.createService("a-1"_qs, true)->createCharacteristic("c-c"_qs, readWrite, nullptr)->dbusPath(),
        app.createService("b-2"_qs, true)->createCharacteristic("c-c"_qs, readWrite, nullptr)->dbusPath()};
    QCOMPARE(paths, (QStringList{"/app/a_1/c_c"_qs, "/app/b_2/c_c"_qs}));
    QCOMPARE(log.lines().size(), 0);
}

void tst_gatt_service::createCharacteristicTellsThatHandlesChanged()
{
    GattApplication app(nullptr, "/app"_qs, QString());
    GattService* service = app.createService("1"_qs, true);
    int listed = -1;
    connect(service, &GattService::handlesChanged, service,
            [&] { listed = int(service->characteristics().size()); });
    GattCharacteristic* characteristic = service->createCharacteristic("2"_qs, readWrite, nullptr);
    QCOMPARE(listed, 1);
    QCOMPARE(characteristic->parent(), service);
}

void tst_gatt_service::aSecondCharacteristicWithTheUuidTakesThePlaceOfTheFirst()
{
    GattTree tree;
    const QPointer<GattCharacteristic> first = tree.plain;
    const QSignalSpy changed(tree.service, &GattService::handlesChanged);
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    GattCharacteristic* second =
        tree.service->createCharacteristic("e0"_qs, GattCharacteristic::Read, nullptr);
    QCOMPARE(changed.size(), 1);
    QCOMPARE(log.lines().size(), 1);
    QCOMPARE(log.lines().at(0).level, log4cplus::ERROR_LOG_LEVEL);
    QCOMPARE(log.lines().at(0).text,
             "Failed to register GattCharacteristic1 adaptor at /app/aaaa_bbbb/e0"_qs);
    QCOMPARE(log.lines().at(0).function,
             "GattCharacteristic::GattCharacteristic(GattService*, const QString&, const QString&, "
             "GattCharacteristic::Option, GattCharacteristic*)"_qs);
    QVERIFY(first);
    QCOMPARE(tree.service->characteristics(), (QList<GattCharacteristic*>{tree.control, tree.paged, second}));
}

void tst_gatt_service::deletingADisplacedCharacteristicTellsNothing()
{
    GattTree tree;
    tree.service->createCharacteristic("e0"_qs, readWrite, nullptr);
    const QSignalSpy changed(tree.service, &GattService::handlesChanged);
    delete tree.plain;
    QCOMPARE(changed.size(), 0);
    QCOMPARE(tree.service->characteristics().size(), 3);
}

void tst_gatt_service::deletingACharacteristicTellsOnce()
{
    GattTree tree;
    const QSignalSpy handles(tree.service, &GattService::handlesChanged);
    const QSignalSpy application(tree.app.get(), &GattApplication::applicationChanged);
    delete tree.plain;
    QCOMPARE(handles.size(), 1);
    QCOMPARE(application.size(), 1);
    QCOMPARE(tree.service->characteristics(), (QList<GattCharacteristic*>{tree.control, tree.paged}));
}

void tst_gatt_service::changesOfDescriptorsArePassedOn()
{
    GattTree tree;
    const QSignalSpy changed(tree.service, &GattService::handlesChanged);
    tree.plain->addDescriptor("2904"_qs, GattDescriptor::Read);
    QCOMPARE(changed.size(), 1);
    delete tree.descriptor;
    QCOMPARE(changed.size(), 2);
}

void tst_gatt_service::aUuidThatIsNoPathElementFailsToExportOnly()
{
    GattApplication app(nullptr, "/app"_qs, QString());
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    GattService* service = app.createService("{1-2}"_qs, true);
    QCOMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL),
             QStringList("Failed to register GattService1 adaptor at /app/{1_2}"_qs));
    QCOMPARE(log.lines().size(), 1);
    QCOMPARE(app.services(), QList<GattService*>{service});
    QCOMPARE(service->dbusPath(), "/app/{1_2}"_qs);
    QCOMPARE(app.GetManagedObjects().first(), service->dbusInterfaceList());
    QVERIFY(service->createCharacteristic("3"_qs, readWrite, nullptr));
    QCOMPARE(service->characteristics().size(), 1);
}

QTEST_GUILESS_MAIN(tst_gatt_service)
#include "tst_gatt_service.moc"
