#include "DBusDetail.h"
#include "DBusHelper.h"
#include "GattTree.h"
#include "LogCapture.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QSignalSpy>
#include <QtTest>

namespace {

QStringList uuids(const QList<GattService*>& services)
{
    QStringList texts;
    for (const GattService* service : services) {
        texts << service->uUID();
    }
    return texts;
}

QStringList paths(const DBusManagedObjectList& objects)
{
    QStringList texts;
    for (const QDBusObjectPath& path : objects.keys()) {
        texts << path.path();
    }
    return texts;
}

bool isOwned(const QString& busName)
{
    return QDBusConnection::systemBus().interface()->isServiceRegistered(busName);
}

} // namespace

class tst_gatt_application : public QObject
{
    Q_OBJECT

private slots:
    void anEmptyApplicationManagesNothing();
    void theParentOwnsTheApplication();
    void exportingRequestsTheBusName();
    void aFailedExportIsFatalInTheLogAndRequestsNoName_data();
    void aFailedExportIsFatalInTheLogAndRequestsNoName();
    void aBusNameThatIsRefusedIsIgnored();
    void servicesComeInOrderOfTheirUuidStrings();
    void servicePathsFollowTheirUuids();
    void uuidsThatDifferInCaseAreDifferentServices();
    void createServiceTellsThatTheApplicationChanged();
    void aSecondServiceWithTheUuidTakesThePlaceOfTheFirst();
    void deletingADisplacedServiceTellsNothing();
    void deletingAServiceTellsOnce();
    void everyChangeBelowTellsOnce();
    void destroyingTheApplicationTellsNothing();
    void managedObjectsListTheWholeTreeByPath();
    void managedObjectsShowWhatTheirAdaptorsShow();
    void displacedServicesAreNotManaged();
    void aDestroyedApplicationFreesItsPathAndTakesItsServicesAlong();
};

void tst_gatt_application::anEmptyApplicationManagesNothing()
{
    GattApplication app(nullptr, "/empty"_qs, QString());
    QVERIFY(app.services().isEmpty());
    QVERIFY(app.GetManagedObjects().isEmpty());
    QCOMPARE(app.dbusPath(), "/empty"_qs);
}

void tst_gatt_application::theParentOwnsTheApplication()
{
    auto* parent = new QObject;
    const QPointer<GattApplication> app = new GattApplication(parent, "/owned"_qs, QString());
    QCOMPARE(app->parent(), parent);
    delete parent;
    QVERIFY(!app);
}

void tst_gatt_application::exportingRequestsTheBusName()
{
    QVERIFY(!isOwned("org.example.Requested"_qs));
    GattApplication app(nullptr, "/app"_qs, "org.example.Requested"_qs);
    QVERIFY(isOwned("org.example.Requested"_qs));
    QCOMPARE(QDBusConnection::systemBus().objectRegisteredAt("/app"_qs), &app);
}

void tst_gatt_application::aFailedExportIsFatalInTheLogAndRequestsNoName_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("taken") << "/taken"_qs;
    QTest::newRow("relative") << "relative"_qs;
    QTest::newRow("empty") << QString();
    QTest::newRow("blank") << "/with blank"_qs;
    QTest::newRow("trailing slash") << "/trailing/"_qs;
}

void tst_gatt_application::aFailedExportIsFatalInTheLogAndRequestsNoName()
{
    QFETCH(QString, path);
    const GattApplication first(nullptr, "/taken"_qs, QString());
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    GattApplication app(nullptr, path, "org.example.Never"_qs);
    QCOMPARE(log.lines().size(), 1);
    QCOMPARE(log.lines().at(0).level, log4cplus::FATAL_LOG_LEVEL);
    QCOMPARE(log.lines().at(0).text, "Failed to register ObjectManager at "_qs + path);
    QVERIFY(!isOwned("org.example.Never"_qs));
    // It stays usable as a local object.
    QVERIFY(app.createService("1"_qs, true));
    QCOMPARE(app.GetManagedObjects().size(), 1);
}

void tst_gatt_application::aBusNameThatIsRefusedIsIgnored()
{
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    const GattApplication app(nullptr, "/nameless"_qs, "not a bus name"_qs);
    QCOMPARE(log.lines().size(), 0);
    QCOMPARE(QDBusConnection::systemBus().objectRegisteredAt("/nameless"_qs), &app);
}

void tst_gatt_application::servicesComeInOrderOfTheirUuidStrings()
{
    GattApplication app(nullptr, "/app"_qs, QString());
    for (const QString& uuid : {"2"_qs, "10"_qs, "b"_qs, "B"_qs}) {
        app.createService(uuid, true);
    }
    QCOMPARE(uuids(app.services()), (QStringList{"10"_qs, "2"_qs, "B"_qs, "b"_qs}));
}

void tst_gatt_application::servicePathsFollowTheirUuids()
{
    GattApplication app(nullptr, "/app"_qs, QString());
    QCOMPARE(app.createService("aaaa-bbbb-cc"_qs, true)->dbusPath(), "/app/aaaa_bbbb_cc"_qs);
    QCOMPARE(app.createService("180F"_qs, true)->dbusPath(), "/app/180F"_qs);
}

void tst_gatt_application::uuidsThatDifferInCaseAreDifferentServices()
{
    GattApplication app(nullptr, "/app"_qs, QString());
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    const GattService* upper = app.createService("AB-1"_qs, true);
    const GattService* lower = app.createService("ab-1"_qs, true);
    QCOMPARE(upper->dbusPath(), "/app/AB_1"_qs);
    QCOMPARE(lower->dbusPath(), "/app/ab_1"_qs);
    QCOMPARE(app.services().size(), 2);
    QCOMPARE(log.lines().size(), 0);
}

void tst_gatt_application::createServiceTellsThatTheApplicationChanged()
{
    GattApplication app(nullptr, "/app"_qs, QString());
    QList<const GattApplication*> told;
    int listed = -1;
    connect(&app, &GattApplication::applicationChanged, &app, [&](const GattApplication* changed) {
        told << changed;
        listed = int(app.services().size());
    });
    GattService* service = app.createService("1"_qs, true);
    QCOMPARE(told, QList<const GattApplication*>{&app});
    // The new service is already part of what the listener finds.
    QCOMPARE(listed, 1);
    QCOMPARE(app.services(), QList<GattService*>{service});
    QCOMPARE(service->parent(), &app);
}

void tst_gatt_application::aSecondServiceWithTheUuidTakesThePlaceOfTheFirst()
{
    GattApplication app(nullptr, "/app"_qs, QString());
    const QPointer<GattService> first = app.createService("1-2"_qs, true);
    const QSignalSpy changed(&app, &GattApplication::applicationChanged);
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    GattService* second = app.createService("1-2"_qs, false);
    QCOMPARE(changed.size(), 1);
    QCOMPARE(log.lines().size(), 1);
    QCOMPARE(log.lines().at(0).level, log4cplus::ERROR_LOG_LEVEL);
    QCOMPARE(log.lines().at(0).text, "Failed to register GattService1 adaptor at /app/1_2"_qs);
    QVERIFY(first);
    QCOMPARE(first->parent(), &app);
    QVERIFY(second != first);
    QCOMPARE(app.services(), QList<GattService*>{second});
    QCOMPARE(QDBusConnection::systemBus().objectRegisteredAt("/app/1_2"_qs), first.data());
}

void tst_gatt_application::deletingADisplacedServiceTellsNothing()
{
    GattApplication app(nullptr, "/app"_qs, QString());
    GattService* first = app.createService("1"_qs, true);
    GattService* second = app.createService("1"_qs, true);
    const QSignalSpy changed(&app, &GattApplication::applicationChanged);
    delete first;
    QCOMPARE(changed.size(), 0);
    QCOMPARE(app.services(), QList<GattService*>{second});
}

void tst_gatt_application::deletingAServiceTellsOnce()
{
    GattTree tree;
    const QSignalSpy changed(tree.app.get(), &GattApplication::applicationChanged);
    delete tree.service;
    QCOMPARE(changed.size(), 1);
    QCOMPARE(changed.at(0).at(0).value<const GattApplication*>(), tree.app.get());
    QVERIFY(tree.app->services().isEmpty());
    QVERIFY(tree.app->GetManagedObjects().isEmpty());
}

void tst_gatt_application::everyChangeBelowTellsOnce()
{
    GattTree tree;
    const QSignalSpy changed(tree.app.get(), &GattApplication::applicationChanged);
    GattCharacteristic* characteristic = tree.service->createCharacteristic("f0"_qs, readWrite, nullptr);
    QCOMPARE(changed.size(), 1);
    GattDescriptor* descriptor = characteristic->addDescriptor("2901"_qs, GattDescriptor::Read);
    QCOMPARE(changed.size(), 2);
    delete descriptor;
    QCOMPARE(changed.size(), 3);
    delete characteristic;
    QCOMPARE(changed.size(), 4);
}

void tst_gatt_application::destroyingTheApplicationTellsNothing()
{
    GattTree tree;
    const QSignalSpy changed(tree.app.get(), &GattApplication::applicationChanged);
    tree.app.reset();
    QCOMPARE(changed.size(), 0);
}

void tst_gatt_application::managedObjectsListTheWholeTreeByPath()
{
    const GattTree tree;
    const DBusManagedObjectList objects = tree.app->GetManagedObjects();
    QCOMPARE(paths(objects),
             (QStringList{"/app/aaaa_bbbb"_qs, "/app/aaaa_bbbb/c0"_qs, "/app/aaaa_bbbb/d0_1"_qs,
                          "/app/aaaa_bbbb/e0"_qs, "/app/aaaa_bbbb/e0/desc0"_qs}));
    QCOMPARE(objects.value(QDBusObjectPath("/app/aaaa_bbbb"_qs)), tree.service->dbusInterfaceList());
    QCOMPARE(objects.value(QDBusObjectPath("/app/aaaa_bbbb/e0"_qs)), tree.plain->dbusInterfaceList());
    QCOMPARE(objects.value(QDBusObjectPath("/app/aaaa_bbbb/e0/desc0"_qs)),
             tree.descriptor->dbusInterfaceList());
}

void tst_gatt_application::managedObjectsShowWhatTheirAdaptorsShow()
{
    const GattTree tree;
    tree.plain->setValue("seen");
    tree.plain->ReadValue({});
    tree.plain->StartNotify();
    tree.descriptor->WriteValue("written", {});
    const auto shownByAdaptors = [](const QObject* object) {
        DBusInterfaceList interfaces;
        for (auto* adaptor :
             object->findChildren<QDBusAbstractAdaptor*>(QString(), Qt::FindDirectChildrenOnly)) {
            if (DBusDetail::interfaceName(adaptor) != propertiesInterface()) {
                const DBusInterfaceList entry = DBusHelper::generateDBusInterfaceList(adaptor);
                interfaces.insert(entry.firstKey(), entry.first());
            }
        }
        return interfaces;
    };

    QCOMPARE(tree.service->dbusInterfaceList(), shownByAdaptors(tree.service));
    QCOMPARE(tree.plain->dbusInterfaceList(), shownByAdaptors(tree.plain));
    QCOMPARE(tree.descriptor->dbusInterfaceList(), shownByAdaptors(tree.descriptor));
    QCOMPARE(tree.plain->dbusInterfaceList().first().value("Value"_qs).toByteArray(), QByteArray("seen"));
}

void tst_gatt_application::displacedServicesAreNotManaged()
{
    GattApplication app(nullptr, "/app"_qs, QString());
    app.createService("1"_qs, true)->createCharacteristic("2"_qs, readWrite, nullptr);
    app.createService("1"_qs, false);
    const DBusManagedObjectList objects = app.GetManagedObjects();
    QCOMPARE(paths(objects), QStringList("/app/1"_qs));
    QCOMPARE(objects.first().value(serviceInterface()).value("Primary"_qs), QVariant(false));
}

void tst_gatt_application::aDestroyedApplicationFreesItsPathAndTakesItsServicesAlong()
{
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    for (int i = 0; i < 2; ++i) {
        GattTree tree;
        const QPointer<GattDescriptor> descriptor = tree.descriptor;
        QCOMPARE(QDBusConnection::systemBus().objectRegisteredAt(tree.descriptor->dbusPath()),
                 tree.descriptor);
        tree.app.reset();
        QVERIFY(!descriptor);
    }
    QCOMPARE(log.lines().size(), 0);
}

QTEST_GUILESS_MAIN(tst_gatt_application)
#include "tst_gatt_application.moc"
