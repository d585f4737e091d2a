#include "GapAdvertisement.h"
#include "LogCapture.h"
#include "MetaObjectText.h"
#include "RawBusClient.h"

#include <QtTest>

#include <functional>

namespace {

const QString interface = QStringLiteral("org.bluez.LEAdvertisement1");
const QString all = QStringLiteral("/all");
const QString some = QStringLiteral("/some");

using Setter = std::function<void(GapAdvertisement&)>;

/** Every setter, by the property that it makes visible; where there are several, the name goes on. */
const QMap<QString, Setter>& setters()
{
    static const QMap<QString, Setter> map{
        {"Appearance", [](auto& adv) { adv.setAppearance(960); }},
        {"Data", [](auto& adv) { adv.setAdvData(QByteArray::fromHex("02260a")); }},
        {"Data typed", [](auto& adv) { adv.setAdvData(0x26, "x"); }},
        {"Discoverable", [](auto& adv) { adv.setDiscoverable(false); }},
        {"Includes", [](auto& adv) { adv.setIncludeTxPower(false); }},
        {"LocalName", [](auto& adv) { adv.setLocalName(QString()); }},
        {"ManufacturerData",
         [](auto& adv) {
             adv.setManufacturerData({{0x59, "x"}});
         }},
        {"MaxInterval", [](auto& adv) { adv.setMaxInterval(200); }},
        {"MinInterval", [](auto& adv) { adv.setMinInterval(100); }},
        {"ScanData", [](auto& adv) { adv.setScanRspData(QByteArray::fromHex("02260a")); }},
        {"ScanData typed", [](auto& adv) { adv.setScanRspData(0x26, "x"); }},
        {"ServiceData",
         [](auto& adv) {
             adv.setServiceData({{"180F", QByteArray("x")}});
         }},
        {"ServiceUUIDs", [](auto& adv) { adv.setServiceUUIDs({"180F"}); }},
        {"ServiceUUIDs solicited", [](auto& adv) { adv.setSolicitUUIDs({"180F"}); }},
        {"Timeout", [](auto& adv) { adv.setTimeout(0); }},
        {"TxPower", [](auto& adv) { adv.setTxPower(7); }},
        {"Type", [](auto& adv) { adv.setType(GapAdvertisement::Broadcast); }}};
    return map;
}

/** Names with their values as they were on the wire, out of an answer to GetAll. */
QMap<QString, QJsonValue> shown(const BusMessage& answer)
{
    QMap<QString, QJsonValue> values;
    for (const auto& entry : answer.body.at(0).toArray()) {
        values.insert(entry.toArray().at(0).toString(), entry.toArray().at(1));
    }
    return values;
}

} // namespace

/** An advertisement of which the bus sees only what was set, beside one of which it sees everything. */
class tst_advertisement_set_properties : public QObject
{
    Q_OBJECT

private slots:
    void aNewOneShowsItsTypeOnly();
    void eachSetterShowsItsProperty_data();
    void eachSetterShowsItsProperty();
    void shownValuesEqualThoseOfTheDefaultMode();
    void whatIsNotShownIsUnknown();
    void scanDataHasTwoNames();
    void nothingCanBeSetInEitherMode();
    void unknownNamesAreRefusedAtOnce();
    void introspectionIsTheSameInBothModes();
    void theDefaultModeShowsAllEighteen();
    void locallyBothModesAreTheSame();
    void deletingItInsideASetterIsSafe_data() { eachSetterShowsItsProperty_data(); }
    void deletingItInsideASetterIsSafe();
    void aReadWritesTheSameLinesInBothModes();
    void whatTheBusCannotCarryIsLeftOut_data();
    void whatTheBusCannotCarryIsLeftOut();
};

void tst_advertisement_set_properties::aNewOneShowsItsTypeOnly()
{
    const GapAdvertisement adv(nullptr, some, GapAdvertisement::SetProperties);
    RawBusClient client;
    const BusMessage answer = client.getAll(some, interface);
    QCOMPARE(answer.signature, QString("a{sv}"));
    QCOMPARE(answer.text, QString("{\"Type\": <s \"peripheral\">}"));
}

void tst_advertisement_set_properties::eachSetterShowsItsProperty_data()
{
    QTest::addColumn<QString>("property");
    for (const QString& name : setters().keys()) {
        QTest::newRow(qPrintable(name)) << name.section(' ', 0, 0);
    }
}

void tst_advertisement_set_properties::eachSetterShowsItsProperty()
{
    QFETCH(const QString, property);
    GapAdvertisement adv(nullptr, some, GapAdvertisement::SetProperties);
    setters()[QTest::currentDataTag()](adv);
    RawBusClient client;
    QSet<QString> expected{"Type", property};
    if (property == "ScanData") {
        expected << "ScanResponseData";
    }
    const QStringList names = shown(client.getAll(some, interface)).keys();
    QCOMPARE(QSet<QString>(names.begin(), names.end()), expected);
    QVERIFY(client.get(some, interface, property).isReply());
}

void tst_advertisement_set_properties::shownValuesEqualThoseOfTheDefaultMode()
{
    GapAdvertisement first(nullptr, all);
    GapAdvertisement second(nullptr, some, GapAdvertisement::SetProperties);
    for (const Setter& set : setters()) {
        set(first);
        set(second);
    }
    RawBusClient client;
    const auto expected = shown(client.getAll(all, interface));
    auto values = shown(client.getAll(some, interface));
    QCOMPARE(values.take("ScanResponseData"), expected.value("ScanData"));
    QCOMPARE(values.size(), 14);
    for (auto it = values.begin(); it != values.end(); ++it) {
        QCOMPARE(it.value(), expected.value(it.key()));
        QCOMPARE(client.get(some, interface, it.key()).text, client.get(all, interface, it.key()).text);
    }
}

void tst_advertisement_set_properties::whatIsNotShownIsUnknown()
{
    GapAdvertisement adv(nullptr, some, GapAdvertisement::SetProperties);
    adv.setLocalName("name");
    RawBusClient client;
    for (const char* name : {"SecondaryChannel", "MinInterval", "TxPower", "SolicitUUIDs", "ScanResponseData",
                             "Duration", "DiscoverableTimeout", "Nothing"}) {
        const BusMessage answer = client.get(some, interface, name);
        QCOMPARE(answer.errorName, QString("org.freedesktop.DBus.Error.UnknownProperty"));
    }
    QCOMPARE(client.get(some, interface, "LocalName").text, QString("<s \"name\">"));
    QCOMPARE(client.get(some, interface, "Type").text, QString("<s \"peripheral\">"));
}

void tst_advertisement_set_properties::scanDataHasTwoNames()
{
    GapAdvertisement adv(nullptr, some, GapAdvertisement::SetProperties);
    adv.setScanRspData(0x26, QByteArray::fromHex("00ff"));
    RawBusClient client;
    const QString value("<a{yv} {38: <ay [00ff]>}>");
    QCOMPARE(client.get(some, interface, "ScanData").text, value);
    QCOMPARE(client.get(some, interface, "ScanResponseData").text, value);
    QCOMPARE(
        client.getAll(some, interface).text,
        QString("{\"ScanData\": %1, \"ScanResponseData\": %1, \"Type\": <s \"peripheral\">}").arg(value));
}

void tst_advertisement_set_properties::nothingCanBeSetInEitherMode()
{
    GapAdvertisement first(nullptr, all);
    GapAdvertisement second(nullptr, some, GapAdvertisement::SetProperties);
    second.setAppearance(5);
    int changes = 0;
    connect(&second, &GapAdvertisement::dataChanged, this, [&changes] { ++changes; });
    RawBusClient client;
    const auto set = [&client](const QString& path, const QString& property, const QString& signature,
                               const QString& value) {
        const BusMessage answer = client.call(path, "org.freedesktop.DBus.Properties", "Set", "ssv",
                                              {interface, property, signature, value});
        return answer.errorName + ": " + answer.errorText;
    };
    for (const auto& [property, signature, value] :
         {std::array<const char*, 3>{"Appearance", "q", "7"}, {"Type", "s", "broadcast"}}) {
        QCOMPARE(set(some, property, signature, value), set(all, property, signature, value));
        QVERIFY(set(some, property, signature, value)
                    .startsWith("org.freedesktop.DBus.Error.PropertyReadOnly: "));
    }
    QVERIFY(set(some, "Timeout", "q", "7").startsWith("org.freedesktop.DBus.Error.UnknownProperty: "));
    QCOMPARE(client.getAll(some, interface).text,
             QString("{\"Appearance\": <q 5>, \"Type\": <s \"peripheral\">}"));
    QCOMPARE(changes, 0);
}

void tst_advertisement_set_properties::unknownNamesAreRefusedAtOnce()
{
    const GapAdvertisement first(nullptr, all);
    const GapAdvertisement second(nullptr, some, GapAdvertisement::SetProperties);
    RawBusClient client;
    const auto both = [](const BusMessage& answer) {
        return answer.errorName + ": " + QString(answer.errorText).replace(all, some);
    };
    QCOMPARE(both(client.get(some, interface, "Nothing")), both(client.get(all, interface, "Nothing")));
    QCOMPARE(both(client.get(some, "a.b", "Type")), both(client.get(all, "a.b", "Type")));
    QCOMPARE(both(client.getAll(some, "a.b")), both(client.getAll(all, "a.b")));
    QVERIFY(client.getAll(some, "a.b").isError());
    const QString properties("org.freedesktop.DBus.Properties");
    QCOMPARE(client.call(some, properties, "Get", "s", {interface}).errorName,
             QString("org.freedesktop.DBus.Error.UnknownMethod"));
    QCOMPARE(client.call(some, properties, "Nothing").errorName,
             QString("org.freedesktop.DBus.Error.UnknownMethod"));
    // Without the interface's name, D-Bus clients mean whichever has the property.
    QCOMPARE(client.get(some, "", "Type").text, client.get(all, "", "Type").text);
}

void tst_advertisement_set_properties::introspectionIsTheSameInBothModes()
{
    const GapAdvertisement first(nullptr, all);
    const GapAdvertisement second(nullptr, some, GapAdvertisement::SetProperties);
    RawBusClient client;
    const QString xml = client.introspect(some);
    QVERIFY(xml.contains("<interface name=\"org.bluez.LEAdvertisement1\">"));
    QCOMPARE(xml, client.introspect(all));
}

void tst_advertisement_set_properties::theDefaultModeShowsAllEighteen()
{
    const GapAdvertisement first(nullptr, all);
    const GapAdvertisement second(nullptr, some, GapAdvertisement::AllProperties);
    RawBusClient client;
    const BusMessage answer = client.getAll(all, interface);
    QCOMPARE(shown(answer).size(), 18);
    QVERIFY(!shown(answer).contains("ScanResponseData"));
    QCOMPARE(client.getAll(some, interface).text, answer.text);
}

void tst_advertisement_set_properties::locallyBothModesAreTheSame()
{
    const auto story = [](GapAdvertisement::PropertyExport mode) {
        QStringList events;
        LogCapture log;
        {
            GapAdvertisement adv(nullptr, some, mode);
            QObject::connect(&adv, &GapAdvertisement::dataChanged,
                             [&events, &adv](const GapAdvertisement* changed) {
                                 events << (changed == &adv ? "changed" : "wrong object");
                             });
            for (const Setter& set : setters()) {
                set(adv);
            }
            QMetaObject::invokeMethod(&adv, "Release");
            for (int i = 0; i < adv.metaObject()->propertyCount(); ++i) {
                QString value;
                QDebug(&value) << adv.metaObject()->property(i).read(&adv);
                events << value;
            }
            events << MetaObjectText::properties(*adv.metaObject())
                   << MetaObjectText::methods(*adv.metaObject());
        }
        for (const LogLine& line : log.lines()) {
            events << QString("%1 %2 %3").arg(line.level).arg(line.function, line.text);
        }
        return events;
    };
    const QStringList expected = story(GapAdvertisement::AllProperties);
    QCOMPARE(expected.filter("changed").size(), setters().size());
    QCOMPARE(story(GapAdvertisement::SetProperties), expected);
}

void tst_advertisement_set_properties::deletingItInsideASetterIsSafe()
{
    for (const auto mode : {GapAdvertisement::AllProperties, GapAdvertisement::SetProperties}) {
        QPointer<GapAdvertisement> adv = new GapAdvertisement(nullptr, some, mode);
        connect(adv, &GapAdvertisement::dataChanged, this,
                [](const GapAdvertisement* changed) { delete changed; });
        setters()[QTest::currentDataTag()](*adv);
        QVERIFY(!adv);
        RawBusClient client;
        QCOMPARE(client.getAll(some, interface).errorName,
                 QString("org.freedesktop.DBus.Error.UnknownObject"));
    }
}

void tst_advertisement_set_properties::aReadWritesTheSameLinesInBothModes()
{
    RawBusClient client;
    const auto linesOfRead = [&client](GapAdvertisement::PropertyExport mode) {
        GapAdvertisement adv(nullptr, some, mode);
        adv.setAppearance(960);
        adv.setLocalName("name");
        const LogCapture log;
        client.get(some, interface, "LocalName");
        return log.texts(log4cplus::TRACE_LOG_LEVEL);
    };
    const QStringList expected("Enter GapAdvertisement::localName: name");
    QCOMPARE(linesOfRead(GapAdvertisement::AllProperties), expected);
    QCOMPARE(linesOfRead(GapAdvertisement::SetProperties), expected);
}

void tst_advertisement_set_properties::whatTheBusCannotCarryIsLeftOut_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("set properties") << int(GapAdvertisement::SetProperties);
    QTest::newRow("all properties") << int(GapAdvertisement::AllProperties);
}

/** libdbus aborts a process that tries to send such values, so this comes last. */
void tst_advertisement_set_properties::whatTheBusCannotCarryIsLeftOut()
{
    QFETCH(const int, mode);
    GapAdvertisement adv(nullptr, some, GapAdvertisement::PropertyExport(mode));
    const QVariantMap data{
        {"180A", QByteArray("x")}, {"180D", QVariant::fromValue(QDBusObjectPath())}, {"180F", QVariant()}};
    adv.setServiceData(data);
    QCOMPARE(adv.serviceData().keys(), data.keys());
    RawBusClient client;
    const QString value("<a{sv} {\"180A\": <ay [78]>}>");
    QCOMPARE(client.get(some, interface, "ServiceData").text, value);
    QVERIFY(client.getAll(some, interface).text.contains("\"ServiceData\": " + value));
}

QTEST_GUILESS_MAIN(tst_advertisement_set_properties)
#include "tst_advertisement_set_properties.moc"
