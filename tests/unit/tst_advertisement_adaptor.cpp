#include "BleDBusTypes.h"
#include "LEAdvertisement1Adaptor.h"
#include "MetaObjectText.h"
#include "QtVersion.h"

#include <QDBusMetaType>
#include <QtTest>

namespace {

const char introspection[] = R"(  <interface name="org.bluez.LEAdvertisement1">
    <method name="Release">
      <annotation value="true" name="org.freedesktop.DBus.Method.NoReply"/>
    </method>
    <annotation value="const" name="org.freedesktop.DBus.Properties.PropertiesChanged"/>
    <property access="read" type="s" name="Type"/>
    <property access="read" type="as" name="ServiceUUIDs"/>
    <property access="read" type="a{qv}" name="ManufacturerData">
      <annotation value="DBusManufacturerData" name="org.qtproject.QtDBus.QtTypeName"/>
    </property>
    <property access="read" type="as" name="SolicitUUIDs"/>
    <property access="read" type="a{sv}" name="ServiceData">
      <annotation value="QVariantMap" name="org.qtproject.QtDBus.QtTypeName"/>
    </property>
    <property access="read" type="a{yv}" name="Data">
      <annotation value="DBusAdvData" name="org.qtproject.QtDBus.QtTypeName"/>
    </property>
    <property access="read" type="a{yv}" name="ScanData">
      <annotation value="DBusAdvData" name="org.qtproject.QtDBus.QtTypeName"/>
    </property>
    <property access="read" type="b" name="Discoverable"/>
    <property access="read" type="q" name="DiscoverableTimeout"/>
    <property access="read" type="as" name="Includes"/>
    <property access="read" type="s" name="LocalName"/>
    <property access="read" type="q" name="Appearance"/>
    <property access="read" type="q" name="Duration"/>
    <property access="read" type="q" name="Timeout"/>
    <property access="read" type="s" name="SecondaryChannel"/>
    <property access="read" type="u" name="MinInterval"/>
    <property access="read" type="u" name="MaxInterval"/>
    <property access="read" type="n" name="TxPower"/>
  </interface>
)";

/** A parent with a Release slot, and whatever dynamic properties a test gives it. */
class Parent : public QObject
{
    Q_OBJECT

public:
    int releases = 0;

private slots:
    void Release() { ++releases; }
};

} // namespace

/** The adaptor on parents of any kind: it only forwards. */
class tst_advertisement_adaptor : public QObject
{
    Q_OBJECT

private slots:
    void theMetaObject();
    void theIntrospectionText();
    void valuesComeFromTheParent();
    void valuesAreConverted();
    void whatCannotBeConvertedIsTheDefault();
    void dataTypesAreKnownByTheirNames();
    void releaseIsForwarded();
    void releaseWithoutSuchASlotDoesNothing();
};

void tst_advertisement_adaptor::theMetaObject()
{
    using namespace MetaObjectText;
    const QMetaObject& metaObject = LEAdvertisement1Adaptor::staticMetaObject;
    QCOMPARE(metaObject.superClass(), &QDBusAbstractAdaptor::staticMetaObject);
    QCOMPARE(methods(metaObject), QStringList("public slot: Q_NOREPLY void Release()"));
    const QString advData = aliasName<DBusAdvData>("DBusAdvData");
    const QString manufacturerData = aliasName<DBusManufacturerData>("DBusManufacturerData");
    QCOMPARE(properties(metaObject),
             QStringList({"ushort Appearance", advData + " Data", "bool Discoverable",
                          "ushort DiscoverableTimeout", "ushort Duration", "QStringList Includes",
                          "QString LocalName", manufacturerData + " ManufacturerData", "uint MaxInterval",
                          "uint MinInterval", advData + " ScanData", "QString SecondaryChannel",
                          "QVariantMap ServiceData", "QStringList ServiceUUIDs", "QStringList SolicitUUIDs",
                          "ushort Timeout", "short TxPower", "QString Type"}));
}

void tst_advertisement_adaptor::theIntrospectionText()
{
    QCOMPARE(MetaObjectText::classInfos(LEAdvertisement1Adaptor::staticMetaObject),
             QStringList({"D-Bus Interface: org.bluez.LEAdvertisement1",
                          QString("D-Bus Introspection: ") + introspection}));
}

void tst_advertisement_adaptor::valuesComeFromTheParent()
{
    Parent parent;
    const LEAdvertisement1Adaptor adaptor(&parent);
    const DBusAdvData blocks{{0x09, "name"}};
    const DBusManufacturerData company{{0x59, "x"}};
    parent.setProperty("Type", "broadcast");
    parent.setProperty("TxPower", QVariant::fromValue(short(-7)));
    parent.setProperty("MaxInterval", 4000000000U);
    parent.setProperty("Includes", QStringList("tx-power"));
    parent.setProperty("ServiceData", QVariantMap{{"180F", 1}});
    parent.setProperty("Data", QVariant::fromValue(blocks));
    parent.setProperty("ManufacturerData", QVariant::fromValue(company));
    QCOMPARE(adaptor.type(), QString("broadcast"));
    QCOMPARE(adaptor.txPower(), short(-7));
    QCOMPARE(adaptor.maxInterval(), 4000000000U);
    QCOMPARE(adaptor.includes(), QStringList("tx-power"));
    QCOMPARE(adaptor.serviceData(), QVariantMap({{"180F", 1}}));
    QCOMPARE(adaptor.data(), blocks);
    QCOMPARE(adaptor.manufacturerData(), company);

    parent.setProperty("Type", "peripheral");
    QCOMPARE(adaptor.type(), QString("peripheral"));
}

void tst_advertisement_adaptor::valuesAreConverted()
{
    Parent parent;
    const LEAdvertisement1Adaptor adaptor(&parent);
    parent.setProperty("Appearance", "960");
    parent.setProperty("LocalName", 5);
    parent.setProperty("Discoverable", 1);
    parent.setProperty("ServiceUUIDs", "180F");
    QCOMPARE(adaptor.appearance(), ushort(960));
    QCOMPARE(adaptor.localName(), QString("5"));
    QCOMPARE(adaptor.discoverable(), true);
    QCOMPARE(adaptor.serviceUUIDs(), QStringList("180F"));
}

void tst_advertisement_adaptor::whatCannotBeConvertedIsTheDefault()
{
    Parent parent;
    const LEAdvertisement1Adaptor adaptor(&parent);
    parent.setProperty("Data", "text");
    parent.setProperty("ManufacturerData", 5);
    parent.setProperty("Timeout", QStringList("x"));
    QVERIFY(adaptor.data().isEmpty());
    QVERIFY(adaptor.manufacturerData().isEmpty());
    QCOMPARE(adaptor.timeout(), ushort(0));
    // The parent has none of these.
    QVERIFY(adaptor.scanData().isEmpty() && adaptor.serviceData().isEmpty());
    QCOMPARE(adaptor.solicitUUIDs(), QStringList());
    QCOMPARE(adaptor.secondaryChannel(), QString());
    QCOMPARE(uint(adaptor.duration()) + adaptor.discoverableTimeout() + adaptor.minInterval(), 0U);
}

void tst_advertisement_adaptor::dataTypesAreKnownByTheirNames()
{
    Parent parent;
    const LEAdvertisement1Adaptor adaptor(&parent);
    QVERIFY(adaptor.manufacturerData().isEmpty());
    QVERIFY(adaptor.property("ManufacturerData").isValid());
    QVERIFY(QtVersion::typeNamed("DBusManufacturerData") != QMetaType::UnknownType);
}

void tst_advertisement_adaptor::releaseIsForwarded()
{
    Parent parent;
    LEAdvertisement1Adaptor adaptor(&parent);
    adaptor.Release();
    QCOMPARE(parent.releases, 1);
}

void tst_advertisement_adaptor::releaseWithoutSuchASlotDoesNothing()
{
    QObject parent;
    LEAdvertisement1Adaptor adaptor(&parent);
    QTest::ignoreMessage(QtWarningMsg, "QMetaObject::invokeMethod: No such method QObject::Release()");
    adaptor.Release();
}

QTEST_GUILESS_MAIN(tst_advertisement_adaptor)
#include "tst_advertisement_adaptor.moc"
