#include "GattTree.h"
#include "LogCapture.h"
#include "RawBusClient.h"

#include <QtTest>

#include <memory>

namespace {

QString objectManager()
{
    return "org.freedesktop.DBus.ObjectManager"_qs;
}

QString service(const QString& path, const QString& uuid)
{
    return R"("%1": {"org.bluez.GattService1": {"Primary": <b true>, "UUID": <s "%2">}})"_qs.arg(path, uuid);
}

QString characteristic(const QString& path, const QString& uuid, const QString& words, const QString& value)
{
    return R"("/app/aaaa_bbbb/%1": {"org.bluez.GattCharacteristic1": {"Flags": <as [%3]>, "Notifying": <b false>, )"
           R"("Service": <o "/app/aaaa_bbbb">, "UUID": <s "%2">, "Value": <ay [%4]>}})"_qs.arg(path, uuid,
                                                                                               words, value);
}

} // namespace

class tst_gatt_managed_objects : public QObject
{
    Q_OBJECT

private slots:
    void anEmptyApplicationHasNone();
    void theTreeComesWholeAndInOrderOfItsPaths();
    void theAnswerShowsTheMomentOfTheCall();
    void displacedObjectsAreNotListed();
    void deletedObjectsAreNoLongerThere();
    void uuidsThatAreNoPathElementsStayHome_data();
    void uuidsThatAreNoPathElementsStayHome();
    void anApplicationAtTheRootSurvivesItsServices();
    void theTreeSendsNoSignalsWhileItChanges();

private:
    BusMessage managedObjects(const QString& path = "/app"_qs)
    {
        return m_client.call(path, objectManager(), "GetManagedObjects"_qs);
    }

    RawBusClient m_client;
};

void tst_gatt_managed_objects::anEmptyApplicationHasNone()
{
    const GattApplication app(nullptr, "/app"_qs, QString());
    const BusMessage reply = managedObjects();
    QCOMPARE(reply.type, "method_return"_qs);
    QCOMPARE(reply.signature, "a{oa{sa{sv}}}"_qs);
    QCOMPARE(reply.text, "{}"_qs);
}

void tst_gatt_managed_objects::theTreeComesWholeAndInOrderOfItsPaths()
{
    GattTree tree;
    tree.app->createService("0"_qs, true);
    tree.plain->setValue("unread");
    tree.paged->setValue("read");
    tree.paged->ReadValue(at(1));
    tree.descriptor->WriteValue("text", {});
    const QString all = R"("read", "write", "notify")"_qs;
    const QStringList objects{
        service("/app/0"_qs, "0"_qs),
        service("/app/aaaa_bbbb"_qs, "aaaa-bbbb"_qs),
        characteristic("c0"_qs, "c0"_qs, R"("read", "write")"_qs, QString()),
        characteristic("d0_1"_qs, "d0-1"_qs, all, "656164"_qs),
        characteristic("e0"_qs, "e0"_qs, all, QString()),
        R"("/app/aaaa_bbbb/e0/desc0": {"org.bluez.GattDescriptor1": {"Characteristic": <o "/app/aaaa_bbbb/e0">, )"
        R"("Flags": <as ["read", "write"]>, "UUID": <s "2901">, "Value": <ay [74657874]>}})"_qs,
    };
    const BusMessage reply = managedObjects();
    QCOMPARE(reply.signature, "a{oa{sa{sv}}}"_qs);
    QCOMPARE(reply.text, QLatin1Char('{') + objects.join(", "_qs) + QLatin1Char('}'));
}

void tst_gatt_managed_objects::theAnswerShowsTheMomentOfTheCall()
{
    GattTree tree;
    QVERIFY(!managedObjects().text.contains("<b true>, \"Service\""_qs));
    tree.plain->StartNotify();
    QVERIFY(managedObjects().text.contains("<b true>, \"Service\""_qs));
    tree.service->createCharacteristic("f0"_qs, readWrite, nullptr);
    QVERIFY(managedObjects().text.contains("/app/aaaa_bbbb/f0"_qs));
}

void tst_gatt_managed_objects::displacedObjectsAreNotListed()
{
    GattTree tree;
    tree.plain->addDescriptor("2901"_qs, GattDescriptor::Read);
    const QString text = managedObjects().text;
    QVERIFY(!text.contains("desc0"_qs));
    QVERIFY(text.contains("desc1"_qs));
    tree.app->createService("aaaa-bbbb"_qs, true);
    QCOMPARE(managedObjects().text,
             QLatin1Char('{') + service("/app/aaaa_bbbb"_qs, "aaaa-bbbb"_qs) + QLatin1Char('}'));
}

void tst_gatt_managed_objects::deletedObjectsAreNoLongerThere()
{
    GattTree tree;
    delete tree.service;
    QCOMPARE(managedObjects().text, "{}"_qs);
    const BusMessage call =
        m_client.call("/app/aaaa_bbbb/e0"_qs, characteristicInterface(), "StartNotify"_qs);
    QCOMPARE(call.errorName, "org.freedesktop.DBus.Error.UnknownObject"_qs);
    tree.app.reset();
    QCOMPARE(managedObjects().errorName, "org.freedesktop.DBus.Error.UnknownObject"_qs);
}

void tst_gatt_managed_objects::uuidsThatAreNoPathElementsStayHome_data()
{
    QTest::addColumn<QString>("uuid");
    QTest::newRow("blank") << "a b"_qs;
    QTest::newRow("braces") << "{0000180f-0000-1000-8000-00805f9b34fb}"_qs;
    QTest::newRow("empty") << QString();
    QTest::newRow("slash at the end") << "a/"_qs;
    QTest::newRow("not ASCII") << "ü"_qs;
}

void tst_gatt_managed_objects::uuidsThatAreNoPathElementsStayHome()
{
    QFETCH(QString, uuid);
    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    GattTree tree;
    const QString before = managedObjects().text;
    // As a service with all that hangs below it, and as a characteristic.
    GattService* service = tree.app->createService(uuid, true);
    service->createCharacteristic("1"_qs, readWrite, nullptr)->addDescriptor("2901"_qs, GattDescriptor::Read);
    tree.service->createCharacteristic(uuid, readWriteNotify, nullptr)
        ->addDescriptor("2"_qs, GattDescriptor::Read);
    QCOMPARE(managedObjects().text, before);
    QVERIFY(tree.app->GetManagedObjects().contains(QDBusObjectPath()));
    QVERIFY(tree.app->services().contains(service));
    // A descriptor's UUID is not part of its path.
    tree.plain->addDescriptor(uuid, GattDescriptor::Read);
    QVERIFY(managedObjects().text.contains(
        "\"UUID\": <s %1>"_qs.arg(QLatin1Char('"') + uuid + QLatin1Char('"'))));
    QCOMPARE(m_client.getAll("/app/aaaa_bbbb/e0/desc1"_qs, descriptorInterface()).type, "method_return"_qs);
}

void tst_gatt_managed_objects::anApplicationAtTheRootSurvivesItsServices()
{
    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    GattApplication app(nullptr, "/"_qs, QString());
    GattService* service = app.createService("1"_qs, true);
    service->createCharacteristic("2"_qs, readWrite, nullptr)->addDescriptor("3"_qs, GattDescriptor::Read);
    QCOMPARE(managedObjects("/"_qs).text, "{}"_qs);
    QCOMPARE(service->dbusPath(), "//1"_qs);
    QCOMPARE(app.GetManagedObjects().size(), 1);
}

void tst_gatt_managed_objects::theTreeSendsNoSignalsWhileItChanges()
{
    m_client.match("type='signal',interface='org.freedesktop.DBus.ObjectManager'"_qs);
    m_client.match("type='signal',interface='org.freedesktop.DBus.Properties'"_qs);
    GattTree tree;
    tree.plain->setValue("x");
    tree.plain->addDescriptor("2904"_qs, GattDescriptor::Read);
    delete tree.service;
    tree.app.reset();
    QCOMPARE(m_client.takeSignals().size(), 0);
}

QTEST_GUILESS_MAIN(tst_gatt_managed_objects)
#include "tst_gatt_managed_objects.moc"
