#include "GattTree.h"
#include "RawBusClient.h"

#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

namespace {

const char serviceText[] = R"(  <interface name="org.bluez.GattService1">
    <property access="read" type="s" name="UUID"/>
    <property access="read" type="b" name="Primary"/>
    <!-- Unsupported:
    <property access="read" type="o" name="Device"/>
    <property access="read" type="ao" name="Includes"/>
    <property access="read" type="q" name="Handle"/>
    -->
  </interface>
)";

const char characteristicText[] = R"(  <interface name="org.bluez.GattCharacteristic1">
    <method name="ReadValue">
      <arg direction="out" type="ay" name="value"/>
      <arg direction="in" type="a{sv}" name="options"/>
      <annotation value="QVariantMap" name="org.qtproject.QtDBus.QtTypeName.In0"/>
    </method>
    <method name="WriteValue">
      <arg direction="in" type="ay" name="value"/>
      <arg direction="in" type="a{sv}" name="options"/>
      <annotation value="QVariantMap" name="org.qtproject.QtDBus.QtTypeName.In1"/>
    </method>
    <method name="StartNotify"/>
    <method name="StopNotify"/>
    <method name="Confirm"/>
    <property access="read" type="s" name="UUID"/>
    <property access="read" type="o" name="Service"/>
    <property access="read" type="ay" name="Value"/>
    <property access="read" type="b" name="Notifying"/>
    <property access="read" type="as" name="Flags"/>
  </interface>
)";

const char descriptorText[] = R"(  <interface name="org.bluez.GattDescriptor1">
    <method name="ReadValue">
      <arg direction="out" type="ay" name="value"/>
      <arg direction="in" type="a{sv}" name="flags"/>
      <annotation value="QVariantMap" name="org.qtproject.QtDBus.QtTypeName.In0"/>
    </method>
    <method name="WriteValue">
      <arg direction="in" type="ay" name="value"/>
      <arg direction="in" type="a{sv}" name="flags"/>
      <annotation value="QVariantMap" name="org.qtproject.QtDBus.QtTypeName.In1"/>
    </method>
    <property access="read" type="s" name="UUID"/>
    <property access="read" type="o" name="Characteristic"/>
    <property access="read" type="ay" name="Value"/>
    <property access="read" type="as" name="Flags"/>
  </interface>
)";

QStringList interfacesIn(const QString& text)
{
    static const QRegularExpression name("<interface name=\"([^\"]*)\""_qs);
    QStringList names;
    for (auto it = name.globalMatch(text); it.hasNext();) {
        names << it.next().captured(1);
    }
    names.sort();
    return names;
}

} // namespace

class tst_gatt_introspection : public QObject
{
    Q_OBJECT

private slots:
    void introspectionReturnsTheTextToTheLetter_data();
    void introspectionReturnsTheTextToTheLetter();
    void objectsShowTheirInterfacesOnceEach_data();
    void objectsShowTheirInterfacesOnceEach();
    void theObjectManagerShowsItsMethodAndNoSignals();
    void busctlIntrospectsEveryObject_data();
    void busctlIntrospectsEveryObject();
    void parentsListTheirChildren();

private:
    GattTree m_tree;
    RawBusClient m_client;
};

void tst_gatt_introspection::introspectionReturnsTheTextToTheLetter_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("text");
    QTest::newRow("service") << "/app/aaaa_bbbb"_qs << QString::fromLatin1(serviceText);
    QTest::newRow("characteristic") << "/app/aaaa_bbbb/e0"_qs << QString::fromLatin1(characteristicText);
    QTest::newRow("descriptor") << "/app/aaaa_bbbb/e0/desc0"_qs << QString::fromLatin1(descriptorText);
}

void tst_gatt_introspection::introspectionReturnsTheTextToTheLetter()
{
    QFETCH(QString, path);
    QFETCH(QString, text);
    const QString actual = m_client.introspect(path);
    QVERIFY2(actual.contains(text), qPrintable(actual));
    const QObject* object = QDBusConnection::systemBus().objectRegisteredAt(path);
    const auto* adaptor = object->findChild<QDBusAbstractAdaptor*>(QString(), Qt::FindDirectChildrenOnly);
    const QMetaObject* metaObject = adaptor->metaObject();
    QCOMPARE(QString::fromLatin1(
                 metaObject->classInfo(metaObject->indexOfClassInfo("D-Bus Introspection")).value()),
             text);
}

void tst_gatt_introspection::objectsShowTheirInterfacesOnceEach_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("own");
    QTest::newRow("application") << "/app"_qs
                                 << "org.freedesktop.DBus.ObjectManager"_qs;
    QTest::newRow("service") << "/app/aaaa_bbbb"_qs << serviceInterface();
    QTest::newRow("characteristic") << "/app/aaaa_bbbb/e0"_qs << characteristicInterface();
    QTest::newRow("descriptor") << "/app/aaaa_bbbb/e0/desc0"_qs << descriptorInterface();
}

void tst_gatt_introspection::objectsShowTheirInterfacesOnceEach()
{
    QFETCH(QString, path);
    QFETCH(QString, own);
    QStringList expected{own, "org.freedesktop.DBus.Introspectable"_qs, "org.freedesktop.DBus.Peer"_qs,
                         propertiesInterface()};
    expected.sort();
    QCOMPARE(interfacesIn(m_client.introspect(path)), expected);
}

void tst_gatt_introspection::theObjectManagerShowsItsMethodAndNoSignals()
{
    const QString text = m_client.introspect("/app"_qs);
    QVERIFY(text.contains("<method name=\"GetManagedObjects\">"_qs));
    QVERIFY(text.contains("type=\"a{oa{sa{sv}}}\""_qs));
    QVERIFY(!text.contains("InterfacesAdded"_qs));
    QVERIFY(!text.contains("InterfacesRemoved"_qs));
}

void tst_gatt_introspection::busctlIntrospectsEveryObject_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QStringList>("members");
    QTest::newRow("application") << "/app"_qs << QStringList{"GetManagedObjects method - a{oa{sa{sv}}} -"_qs};
    QTest::newRow("service") << "/app/aaaa_bbbb"_qs
                             << QStringList{"Primary property b true emits-change"_qs,
                                            "UUID property s \"aaaa-bbbb\" emits-change"_qs};
    QTest::newRow("characteristic")
        << "/app/aaaa_bbbb/e0"_qs
        << QStringList{"Confirm method - - -"_qs,
                       "ReadValue method a{sv} ay -"_qs,
                       "StartNotify method - - -"_qs,
                       "StopNotify method - - -"_qs,
                       "WriteValue method aya{sv} - -"_qs,
                       "Flags property as 3 \"read\" \"write\" \"notify\" emits-change"_qs,
                       "Notifying property b false emits-change"_qs,
                       "Service property o \"/app/aaaa_bbbb\" emits-change"_qs,
                       "UUID property s \"e0\" emits-change"_qs,
                       "Value property ay 0 emits-change"_qs};
    QTest::newRow("descriptor") << "/app/aaaa_bbbb/e0/desc0"_qs
                                << QStringList{
                                       "ReadValue method a{sv} ay -"_qs,
                                       "WriteValue method aya{sv} - -"_qs,
                                       "Characteristic property o \"/app/aaaa_bbbb/e0\" emits-change"_qs,
                                       "Flags property as 2 \"read\" \"write\" emits-change"_qs,
                                       "UUID property s \"2901\" emits-change"_qs,
                                       "Value property ay 0 emits-change"_qs};
}

void tst_gatt_introspection::busctlIntrospectsEveryObject()
{
    QFETCH(QString, path);
    QFETCH(QStringList, members);
    QProcess busctl;
    busctl.start("busctl"_qs,
                 {"--address="_qs + qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS"), "--no-pager"_qs,
                  "--full"_qs, "introspect"_qs, QDBusConnection::systemBus().baseService(), path});
    QTRY_COMPARE_WITH_TIMEOUT(busctl.state(), QProcess::NotRunning, 50000);
    QVERIFY2(busctl.exitCode() == 0, busctl.readAllStandardError().constData());
    QStringList own;
    for (const QString& line : QString::fromUtf8(busctl.readAllStandardOutput()).split(QLatin1Char('\n'))) {
        own << line.simplified();
    }
    for (const QString& member : members) {
        QVERIFY2(own.contains(QLatin1Char('.') + member), qPrintable(own.join(QLatin1Char('\n'))));
    }
}

void tst_gatt_introspection::parentsListTheirChildren()
{
    QVERIFY(m_client.introspect("/app"_qs).contains("<node name=\"aaaa_bbbb\"/>"_qs));
    const QString service = m_client.introspect("/app/aaaa_bbbb"_qs);
    for (const QString& child : {"c0"_qs, "d0_1"_qs, "e0"_qs}) {
        QVERIFY(service.contains("<node name=\"%1\"/>"_qs.arg(child)));
    }
}

QTEST_GUILESS_MAIN(tst_gatt_introspection)
#include "tst_gatt_introspection.moc"
