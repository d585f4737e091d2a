#include "GapAdvertisement.h"
#include "LogCapture.h"
#include "MetaObjectText.h"
#include "QtVersion.h"

#include <QMetaEnum>
#include <QSignalSpy>
#include <QtTest>

#include <functional>
#include <type_traits>

// Two of one path would fight for it.
static_assert(!std::is_copy_constructible_v<GapAdvertisement>);
static_assert(sizeof(GapAdvertisement::GapDeviceType) == 4);
static_assert(GapAdvertisement::Peripheral == 0 && GapAdvertisement::Broadcast == 1);
static_assert(std::is_same_v<GapManufacturerData, DBusManufacturerData>);

namespace {

constexpr auto Trace = log4cplus::TRACE_LOG_LEVEL;

const QStringList uuids{"180F", "180A"};
const DBusManufacturerData company{{0x0059, "nordic"}, {0xFFFF, ""}};
const QVariantMap serviceData{{"180F", QByteArray("\x64")}, {"text", "as given"}};

struct Setting
{
    std::function<void(GapAdvertisement&)> set;
    QString setterLine;
};

} // namespace

Q_DECLARE_METATYPE(Setting)
Q_DECLARE_METATYPE(const GapAdvertisement*)

/** The advertisement as a holder of properties; there is no bus here. */
class tst_advertisement : public QObject
{
    Q_OBJECT

public:
    static void initMain() { qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus"); }

private slots:
    void initTestCase() { qRegisterMetaType<const GapAdvertisement*>(); }
    void theMetaObject();
    void withoutABusItIsUsableAndSaysSo();
    void theParentOwnsIt();
    void aNewOneHasTheInitialValues();
    void gettersReturnTheInitialValues();
    void aSetterStoresLogsAndEmitsOnce_data();
    void aSetterStoresLogsAndEmitsOnce();
    void settingTheSameValueEmitsAgain_data() { aSetterStoresLogsAndEmitsOnce_data(); }
    void settingTheSameValueEmitsAgain();
    void solicitedUuidsReplaceTheServiceUuids();
    void theTransmitPowerIsTheOnlyInclude();
    void anUnknownTypeIsAnEmptyText();
    void gettersWriteTheirValues();
    void gettersWithoutALine();
    void extremeValuesAreKept();
    void nothingIsBuiltForALineThatIsOff();
    void releaseOnlyLogs();
    void theValueIsStoredBeforeTheSignal();
};

void tst_advertisement::theMetaObject()
{
    using namespace MetaObjectText;
    const QMetaObject& metaObject = GapAdvertisement::staticMetaObject;
    QCOMPARE(metaObject.superClass(), &QObject::staticMetaObject);
    QCOMPARE(methods(metaObject), QStringList({"public signal: void dataChanged(const GapAdvertisement* adv)",
                                               "private slot: void Release()"}));
    const QString advData = aliasName<DBusAdvData>("DBusAdvData");
    const QString manufacturerData = aliasName<DBusManufacturerData>("DBusManufacturerData");
    QCOMPARE(properties(metaObject),
             QStringList({"ushort Appearance", advData + " Data", advData + " ScanData", "bool Discoverable",
                          "ushort DiscoverableTimeout", "ushort Duration", "QStringList Includes",
                          "QString LocalName", manufacturerData + " ManufacturerData", "uint MaxInterval",
                          "uint MinInterval", "QString SecondaryChannel", "QVariantMap ServiceData",
                          "QStringList ServiceUUIDs", "QStringList SolicitUUIDs", "ushort Timeout",
                          "short TxPower", "QString Type"}));
    QCOMPARE(classInfos(metaObject), QStringList());
    QCOMPARE(metaObject.enumeratorCount(), metaObject.enumeratorOffset());
}

void tst_advertisement::withoutABusItIsUsableAndSaysSo()
{
    const LogCapture log;
    GapAdvertisement adv(nullptr, "/some/path");
    QCOMPARE(log.texts(Trace).value(0),
             QString("Enter GapAdvertisement::GapAdvertisement: dbusPath: /some/path"));
    QCOMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL),
             QStringList("Failed to register LEAdvertisement1 adaptor at /some/path"));
    QCOMPARE(log.lines().size(), 2);
    QCOMPARE(adv.dbusPath(), QString("/some/path"));
    adv.setLocalName("still works");
    QCOMPARE(adv.localName(), QString("still works"));
}

void tst_advertisement::theParentOwnsIt()
{
    auto parent = std::make_unique<QObject>();
    const QPointer<GapAdvertisement> adv = new GapAdvertisement(parent.get(), "/adv");
    QCOMPARE(adv->parent(), parent.get());
    parent.reset();
    QVERIFY(!adv);
}

void tst_advertisement::aNewOneHasTheInitialValues()
{
    const GapAdvertisement adv(nullptr, "/adv");
    const QVariantMap expected{{"Appearance", QVariant::fromValue(ushort(65535))},
                               {"Discoverable", false},
                               {"DiscoverableTimeout", QVariant::fromValue(ushort(0))},
                               {"Duration", QVariant::fromValue(ushort(0))},
                               {"Includes", QStringList()},
                               {"LocalName", QString()},
                               {"MaxInterval", 0U},
                               {"MinInterval", 0U},
                               {"SecondaryChannel", QString()},
                               {"ServiceData", QVariantMap()},
                               {"ServiceUUIDs", QStringList()},
                               {"SolicitUUIDs", QStringList()},
                               {"Timeout", QVariant::fromValue(ushort(0))},
                               {"TxPower", QVariant::fromValue(short(127))},
                               {"Type", "peripheral"}};
    for (auto it = expected.begin(); it != expected.end(); ++it) {
        QCOMPARE(adv.property(it.key().toLatin1()), it.value());
        QCOMPARE(adv.property(it.key().toLatin1()).userType(), it->userType());
    }
    QVERIFY(adv.property("Data").value<DBusAdvData>().isEmpty());
    QVERIFY(adv.property("ScanData").value<DBusAdvData>().isEmpty());
    QVERIFY(adv.property("ManufacturerData").value<DBusManufacturerData>().isEmpty());
    using MetaObjectText::aliasName;
    QCOMPARE(QString(adv.property("Data").typeName()), aliasName<DBusAdvData>("DBusAdvData"));
    QCOMPARE(QString(adv.property("ManufacturerData").typeName()),
             aliasName<DBusManufacturerData>("DBusManufacturerData"));
}

void tst_advertisement::gettersReturnTheInitialValues()
{
    const GapAdvertisement adv(nullptr, "/adv");
    QCOMPARE(adv.appearance(), ushort(0xFFFF));
    QCOMPARE(adv.txPower(), short(127));
    QCOMPARE(adv.discoverable(), false);
    QCOMPARE(uint(adv.discoverableTimeout()) + adv.duration() + adv.timeout(), 0U);
    QCOMPARE(adv.minInterval(), 0U);
    QCOMPARE(adv.maxInterval(), 0U);
    QCOMPARE(adv.localName() + adv.secondaryChannel(), QString());
    QCOMPARE(adv.includes() + adv.serviceUUIDs() + adv.solicitUUIDs(), QStringList());
    QVERIFY(adv.data().isEmpty() && adv.scanData().isEmpty());
    QVERIFY(adv.manufacturerData().isEmpty() && adv.serviceData().isEmpty());
    QCOMPARE(adv.type(), QString("peripheral"));
}

void tst_advertisement::aSetterStoresLogsAndEmitsOnce_data()
{
    QTest::addColumn<Setting>("setting");
    QTest::addColumn<QByteArray>("property");
    QTest::addColumn<QVariant>("value");
    const auto row = [](const char* setter, const char* text, const char* property, const QVariant& value,
                        const std::function<void(GapAdvertisement&)>& set) {
        QTest::newRow(setter) << Setting{set, QString("Enter GapAdvertisement::%1: %2").arg(setter, text)}
                              << QByteArray(property) << value;
    };
    row("setAppearance", "appearance: 960", "Appearance", 960, [](auto& adv) { adv.setAppearance(960); });
    row("setDiscoverable", "discoverable: 1", "Discoverable", true,
        [](auto& adv) { adv.setDiscoverable(true); });
    row("setIncludeTxPower", "include: 1", "Includes", QStringList("tx-power"),
        [](auto& adv) { adv.setIncludeTxPower(true); });
    row("setTxPower", "-12", "TxPower", -12, [](auto& adv) { adv.setTxPower(-12); });
    row("setTimeout", "65535", "Timeout", 65535, [](auto& adv) { adv.setTimeout(65535); });
    row("setMinInterval", "4294967295", "MinInterval", 4294967295U,
        [](auto& adv) { adv.setMinInterval(4294967295U); });
    row("setMaxInterval", "20", "MaxInterval", 20, [](auto& adv) { adv.setMaxInterval(20); });
    row("setLocalName", "name: Jörg's lamp", "LocalName", "Jörg's lamp",
        [](auto& adv) { adv.setLocalName("Jörg's lamp"); });
    row("setType", "type: 1", "Type", "broadcast",
        [](auto& adv) { adv.setType(GapAdvertisement::Broadcast); });
    row("setServiceUUIDs", "", "ServiceUUIDs", uuids, [](auto& adv) { adv.setServiceUUIDs(uuids); });
    row("setSolicitUUIDs", "", "ServiceUUIDs", uuids, [](auto& adv) { adv.setSolicitUUIDs(uuids); });
    row("setServiceData", "", "ServiceData", serviceData, [](auto& adv) { adv.setServiceData(serviceData); });
    row("setManufacturerData", "", "ManufacturerData", QVariant::fromValue(company),
        [](auto& adv) { adv.setManufacturerData(company); });
}

void tst_advertisement::aSetterStoresLogsAndEmitsOnce()
{
    QFETCH(const Setting, setting);
    QFETCH(const QByteArray, property);
    QFETCH(QVariant, value);
    GapAdvertisement adv(nullptr, "/adv");
    const QSignalSpy spy(&adv, &GapAdvertisement::dataChanged);
    const LogCapture log;
    setting.set(adv);
    QCOMPARE(log.lines().size(), 1);
    QCOMPARE(log.texts(Trace), QStringList(setting.setterLine));
    QCOMPARE(spy.size(), 1);
    QCOMPARE(spy.constFirst().constFirst().value<const GapAdvertisement*>(), &adv);

    QVariant held = adv.property(property);
    if (property == "ManufacturerData") {
        QCOMPARE(held.value<DBusManufacturerData>(), value.value<DBusManufacturerData>());
    } else {
        QVERIFY(value.convert(QtVersion::Type(held.userType())));
        QCOMPARE(held, value);
    }
    const GapAdvertisement fresh(nullptr, "/fresh");
    for (int i = GapAdvertisement::staticMetaObject.propertyOffset();
         i < GapAdvertisement::staticMetaObject.propertyCount(); ++i) {
        const QMetaProperty other = GapAdvertisement::staticMetaObject.property(i);
        if (other.name() != property && other.userType() < QMetaType::User) {
            QCOMPARE(other.read(&adv), other.read(&fresh));
        }
    }
}

void tst_advertisement::settingTheSameValueEmitsAgain()
{
    QFETCH(const Setting, setting);
    GapAdvertisement adv(nullptr, "/adv");
    setting.set(adv);
    QSignalSpy spy(&adv, &GapAdvertisement::dataChanged);
    setting.set(adv);
    QCOMPARE(spy.size(), 1);
    adv.setAppearance(adv.appearance());
    QCOMPARE(spy.size(), 2);
}

void tst_advertisement::solicitedUuidsReplaceTheServiceUuids()
{
    GapAdvertisement adv(nullptr, "/adv");
    adv.setServiceUUIDs(uuids);
    adv.setSolicitUUIDs({"1805"});
    QCOMPARE(adv.serviceUUIDs(), QStringList("1805"));
    QCOMPARE(adv.solicitUUIDs(), QStringList());
    QCOMPARE(adv.property("SolicitUUIDs").toStringList(), QStringList());
}

void tst_advertisement::theTransmitPowerIsTheOnlyInclude()
{
    GapAdvertisement adv(nullptr, "/adv");
    adv.setLocalName("name");
    adv.setAppearance(1);
    QCOMPARE(adv.includes(), QStringList());
    adv.setIncludeTxPower(true);
    QCOMPARE(adv.includes(), QStringList("tx-power"));
    adv.setIncludeTxPower(false);
    QCOMPARE(adv.includes(), QStringList());
}

void tst_advertisement::anUnknownTypeIsAnEmptyText()
{
    GapAdvertisement adv(nullptr, "/adv");
    LogCapture log;
    for (const int type : {2, -1, 255}) {
        log.clear();
        adv.setType(GapAdvertisement::GapDeviceType(type));
        QCOMPARE(log.texts(Trace),
                 QStringList(QString("Enter GapAdvertisement::setType: type: %1").arg(type)));
        QCOMPARE(adv.type(), QString(""));
        QCOMPARE(adv.property("Type"), QVariant(""));
    }
    adv.setType(GapAdvertisement::Peripheral);
    QCOMPARE(adv.type(), QString("peripheral"));
}

void tst_advertisement::gettersWriteTheirValues()
{
    GapAdvertisement adv(nullptr, "/adv");
    adv.setManufacturerData(company);
    adv.setAdvData(1, "x");
    adv.setIncludeTxPower(true);
    adv.setDiscoverable(true);
    adv.setLocalName("name");
    const LogCapture log;
    adv.appearance();
    adv.discoverable();
    adv.discoverableTimeout();
    adv.duration();
    adv.localName();
    adv.maxInterval();
    adv.minInterval();
    adv.secondaryChannel();
    adv.timeout();
    adv.txPower();
    adv.includes();
    adv.data();
    adv.scanData();
    adv.manufacturerData();
    QStringList expected;
    for (const char* text :
         {"appearance: 65535", "discoverable: 1", "discoverableTimeout: 0", "duration: 0", "localName: name",
          "maxInterval: 0", "minInterval: 0", "secondaryChannel: ", "timeout: 0", "txPower: 127",
          "includes: (tx-power)", "data: 1", "scanData: 0", "manufacturerData: size=2"}) {
        expected << QString("Enter GapAdvertisement::") + text;
    }
    QCOMPARE(log.texts(Trace), expected);
    QCOMPARE(log.lines().size(), expected.size());
    adv.setIncludeTxPower(false);
    adv.includes();
    QCOMPARE(log.texts(Trace).constLast(), QString("Enter GapAdvertisement::includes: ()"));
}

void tst_advertisement::gettersWithoutALine()
{
    const GapAdvertisement adv(nullptr, "/adv");
    const LogCapture log;
    adv.type();
    adv.serviceUUIDs();
    adv.solicitUUIDs();
    adv.serviceData();
    QVERIFY(!adv.dbusPath().isEmpty());
    QVERIFY(log.lines().isEmpty());
}

void tst_advertisement::extremeValuesAreKept()
{
    GapAdvertisement adv(nullptr, "/adv");
    adv.setTxPower(-32768);
    QCOMPARE(adv.txPower(), short(-32768));
    adv.setTxPower(32767);
    QCOMPARE(adv.txPower(), short(32767));
    adv.setAppearance(0);
    QCOMPARE(adv.appearance(), ushort(0));
    adv.setMinInterval(5);
    adv.setMaxInterval(1);
    QCOMPARE(adv.minInterval(), 5U);
    QCOMPARE(adv.maxInterval(), 1U);
    const QString longName(1000, 'n');
    adv.setLocalName(longName);
    QCOMPARE(adv.localName(), longName);
    adv.setServiceUUIDs({"", "not a uuid", "180F", "180F"});
    QCOMPARE(adv.serviceUUIDs(), QStringList({"", "not a uuid", "180F", "180F"}));
}

void tst_advertisement::nothingIsBuiltForALineThatIsOff()
{
    GapAdvertisement adv(nullptr, "/adv");
    const LogCapture log(log4cplus::DEBUG_LOG_LEVEL);
    adv.setLocalName("name");
    adv.localName();
    adv.includes();
    QVERIFY(log.lines().isEmpty());
}

void tst_advertisement::releaseOnlyLogs()
{
    GapAdvertisement adv(nullptr, "/the/path");
    adv.setLocalName("name");
    const QSignalSpy spy(&adv, &GapAdvertisement::dataChanged);
    const LogCapture log;
    QVERIFY(QMetaObject::invokeMethod(&adv, "Release"));
    QCOMPARE(log.lines().size(), 1);
    QCOMPARE(log.texts(log4cplus::DEBUG_LOG_LEVEL), QStringList("Gap advertisement release: /the/path"));
    QCOMPARE(spy.size(), 0);
    QCOMPARE(adv.localName(), QString("name"));
}

void tst_advertisement::theValueIsStoredBeforeTheSignal()
{
    GapAdvertisement adv(nullptr, "/adv");
    QString seen;
    connect(&adv, &GapAdvertisement::dataChanged, this,
            [&seen](const GapAdvertisement* changed) { seen = changed->localName(); });
    adv.setLocalName("new");
    QCOMPARE(seen, QString("new"));
}

QTEST_GUILESS_MAIN(tst_advertisement)
#include "tst_advertisement.moc"
