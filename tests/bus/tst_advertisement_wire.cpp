#include "GapAdvertisement.h"
#include "LEAdvertisement1Adaptor.h"
#include "LogCapture.h"
#include "MetaObjectText.h"
#include "RawBusClient.h"

#include <QDBusConnection>
#include <QtTest>

namespace {

const QString interface = QStringLiteral("org.bluez.LEAdvertisement1");
const QString path = QStringLiteral("/com/example/adv");

QString failedExport(const QString& at)
{
    return "Failed to register LEAdvertisement1 adaptor at " + at;
}

/** Runs a program of its own against the bus while this one answers; its standard output. */
QString outputOf(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    if (!QTest::qWaitFor([&process] { return process.state() == QProcess::NotRunning; }, 20000) ||
        process.exitCode() != 0) {
        return "failed: " + process.readAllStandardError() + process.errorString();
    }
    return process.readAllStandardOutput();
}

} // namespace

/** The advertisement as another process sees it. */
class tst_advertisement_wire : public QObject
{
    Q_OBJECT

private slots:
    void aNewOneShowsAllPropertiesWithTheirTypes();
    void setValuesAreShown();
    void eachReadShowsTheValueOfThatMoment();
    void emptyMapsKeepTheirSignatures();
    void nothingCanBeSet_data();
    void nothingCanBeSet();
    void unknownNamesAreRefusedAtOnce();
    void releaseNeedsNoReply();
    void introspectionShowsTheInterfaceOnce();
    void busctlReadsIt();
    void aTakenPathIsReportedAndTheFirstStays();
    void anInvalidPathIsReported_data();
    void anInvalidPathIsReported();
    void aDeletedOneIsGone();
    void noPropertyChangeIsSignalled();
};

void tst_advertisement_wire::aNewOneShowsAllPropertiesWithTheirTypes()
{
    const GapAdvertisement adv(nullptr, path);
    RawBusClient client;
    const BusMessage all = client.getAll(path, interface);
    QCOMPARE(all.signature, QString("a{sv}"));
    QCOMPARE(all.text, QString("{"
                               "\"Appearance\": <q 65535>, "
                               "\"Data\": <a{yv} {}>, "
                               "\"Discoverable\": <b false>, "
                               "\"DiscoverableTimeout\": <q 0>, "
                               "\"Duration\": <q 0>, "
                               "\"Includes\": <as []>, "
                               "\"LocalName\": <s \"\">, "
                               "\"ManufacturerData\": <a{qv} {}>, "
                               "\"MaxInterval\": <u 0>, "
                               "\"MinInterval\": <u 0>, "
                               "\"ScanData\": <a{yv} {}>, "
                               "\"SecondaryChannel\": <s \"\">, "
                               "\"ServiceData\": <a{sv} {}>, "
                               "\"ServiceUUIDs\": <as []>, "
                               "\"SolicitUUIDs\": <as []>, "
                               "\"Timeout\": <q 0>, "
                               "\"TxPower\": <n 127>, "
                               "\"Type\": <s \"peripheral\">}"));
}

void tst_advertisement_wire::setValuesAreShown()
{
    GapAdvertisement adv(nullptr, path);
    adv.setAdvData(QByteArray::fromHex("020106 0509616263"));
    adv.setScanRspData(0x26, QByteArray::fromHex("00ff"));
    adv.setManufacturerData({{0xFFFF, "z"}, {0x0059, QByteArray::fromHex("0102")}});
    adv.setServiceData({{"180F", QByteArray("d")}, {"2A00", "as given"}});
    adv.setSolicitUUIDs({"180F", "180A"});
    adv.setIncludeTxPower(true);
    adv.setTxPower(-7);
    adv.setMaxInterval(4294967295U);
    adv.setType(GapAdvertisement::GapDeviceType(2));
    adv.setLocalName(QString::fromUtf8("Jörg \xF0\x9F\x92\xA1"));
    RawBusClient client;
    const auto get = [&client](const QString& name) { return client.get(path, interface, name).text; };
    QCOMPARE(get("Data"), QString("<a{yv} {1: <ay [06]>, 9: <ay [616263]>}>"));
    QCOMPARE(get("ScanData"), QString("<a{yv} {38: <ay [00ff]>}>"));
    QCOMPARE(get("ManufacturerData"), QString("<a{qv} {89: <ay [0102]>, 65535: <ay [7a]>}>"));
    QCOMPARE(get("ServiceData"), QString("<a{sv} {\"180F\": <ay [64]>, \"2A00\": <s \"as given\">}>"));
    QCOMPARE(get("ServiceUUIDs"), QString("<as [\"180F\", \"180A\"]>"));
    QCOMPARE(get("SolicitUUIDs"), QString("<as []>"));
    QCOMPARE(get("Includes"), QString("<as [\"tx-power\"]>"));
    QCOMPARE(get("TxPower"), QString("<n -7>"));
    QCOMPARE(get("MaxInterval"), QString("<u 4294967295>"));
    QCOMPARE(get("Type"), QString("<s \"\">"));
    QCOMPARE(get("LocalName"), QString::fromUtf8("<s \"Jörg \xF0\x9F\x92\xA1\">"));
}

void tst_advertisement_wire::eachReadShowsTheValueOfThatMoment()
{
    GapAdvertisement adv(nullptr, path);
    RawBusClient client;
    for (const ushort appearance : {ushort(960), ushort(961), ushort(0)}) {
        adv.setAppearance(appearance);
        QCOMPARE(client.get(path, interface, "Appearance").text, QString("<q %1>").arg(appearance));
        QVERIFY(client.getAll(path, interface)
                    .text.startsWith(QString("{\"Appearance\": <q %1>, ").arg(appearance)));
    }
}

void tst_advertisement_wire::emptyMapsKeepTheirSignatures()
{
    GapAdvertisement adv(nullptr, path);
    adv.setAdvData(0x09, QByteArray());
    RawBusClient client;
    QCOMPARE(client.get(path, interface, "Data").text, QString("<a{yv} {9: <ay []>}>"));
    adv.setAdvData(QByteArray());
    QCOMPARE(client.get(path, interface, "Data").text, QString("<a{yv} {}>"));
}

void tst_advertisement_wire::nothingCanBeSet_data()
{
    QTest::addColumn<QString>("signature");
    QTest::addColumn<QStringList>("value");
    QTest::newRow("Appearance") << "q" << QStringList("5");
    QTest::newRow("Discoverable") << "b" << QStringList("true");
    QTest::newRow("LocalName") << "s" << QStringList("other");
    QTest::newRow("MinInterval") << "u" << QStringList("5");
    QTest::newRow("SecondaryChannel") << "s" << QStringList("1M");
    QTest::newRow("ServiceUUIDs") << "as" << QStringList({"1", "180F"});
    QTest::newRow("TxPower") << "n" << QStringList("5");
    QTest::newRow("Type") << "s" << QStringList("broadcast");
}

void tst_advertisement_wire::nothingCanBeSet()
{
    QFETCH(const QString, signature);
    QFETCH(const QStringList, value);
    const GapAdvertisement adv(nullptr, path);
    int changes = 0;
    connect(&adv, &GapAdvertisement::dataChanged, this, [&changes] { ++changes; });
    RawBusClient client;
    const QString before = client.getAll(path, interface).text;
    const QString property = QTest::currentDataTag();
    const BusMessage answer = client.call(path, "org.freedesktop.DBus.Properties", "Set", "ssv",
                                          QStringList({interface, property, signature}) + value);
    QCOMPARE(answer.errorName, QString("org.freedesktop.DBus.Error.PropertyReadOnly"));
    QCOMPARE(answer.errorText, QString("Property org.bluez.LEAdvertisement1.%1 is read-only").arg(property));
    QCOMPARE(client.getAll(path, interface).text, before);
    QCOMPARE(changes, 0);
}

void tst_advertisement_wire::unknownNamesAreRefusedAtOnce()
{
    const GapAdvertisement adv(nullptr, path);
    RawBusClient client;
    QCOMPARE(client.get(path, interface, "Nothing").errorName,
             QString("org.freedesktop.DBus.Error.UnknownProperty"));
    QCOMPARE(client.get(path, "org.bluez.Other1", "Type").errorName,
             QString("org.freedesktop.DBus.Error.UnknownInterface"));
    QCOMPARE(client.getAll(path, "org.bluez.Other1").errorName,
             QString("org.freedesktop.DBus.Error.UnknownInterface"));
    QCOMPARE(client.get(path, "", "Nothing").errorName,
             QString("org.freedesktop.DBus.Error.UnknownInterface"));
    const QString properties("org.freedesktop.DBus.Properties");
    QCOMPARE(client.call(path, properties, "Set", "ssv", {"org.bluez.Other1", "Type", "s", "x"}).errorName,
             QString("org.freedesktop.DBus.Error.UnknownInterface"));
    QCOMPARE(client.call(path, properties, "Set", "ssv", {interface, "Nothing", "s", "x"}).errorName,
             QString("org.freedesktop.DBus.Error.UnknownProperty"));
    QCOMPARE(client.call(path, interface, "Nothing").errorName,
             QString("org.freedesktop.DBus.Error.UnknownMethod"));
    QCOMPARE(client.call(path, interface, "Release", "s", {"x"}).errorName,
             QString("org.freedesktop.DBus.Error.UnknownMethod"));
    QCOMPARE(client.get(path, interface, "Type").text, QString("<s \"peripheral\">"));
}

void tst_advertisement_wire::releaseNeedsNoReply()
{
    GapAdvertisement adv(nullptr, path);
    adv.setLocalName("name");
    int changes = 0;
    connect(&adv, &GapAdvertisement::dataChanged, this, [&changes] { ++changes; });
    RawBusClient client;
    const LogCapture log(log4cplus::DEBUG_LOG_LEVEL);
    BusCall release{path, interface, "Release"};
    release.noReply = true;
    QCOMPARE(client.call(release).type, QString("sent"));
    QTRY_COMPARE_WITH_TIMEOUT(log.lines().size(), 1, 10000);
    QCOMPARE(log.texts(log4cplus::DEBUG_LOG_LEVEL), QStringList("Gap advertisement release: " + path));
    QCOMPARE(client.get(path, interface, "LocalName").text, QString("<s \"name\">"));
    QCOMPARE(changes, 0);
}

void tst_advertisement_wire::introspectionShowsTheInterfaceOnce()
{
    const GapAdvertisement adv(nullptr, path);
    RawBusClient client;
    const QString xml = client.introspect(path);
    const QMetaObject& adaptor = LEAdvertisement1Adaptor::staticMetaObject;
    QVERIFY(xml.contains(adaptor.classInfo(adaptor.indexOfClassInfo("D-Bus Introspection")).value()));
    QStringList interfaces;
    QRegularExpressionMatchIterator matches =
        QRegularExpression("<interface name=\"([^\"]*)\"").globalMatch(xml);
    while (matches.hasNext()) {
        interfaces << matches.next().captured(1);
    }
    interfaces.sort();
    QCOMPARE(interfaces, QStringList({"org.bluez.LEAdvertisement1", "org.freedesktop.DBus.Introspectable",
                                      "org.freedesktop.DBus.Peer", "org.freedesktop.DBus.Properties"}));
}

void tst_advertisement_wire::busctlReadsIt()
{
    GapAdvertisement adv(nullptr, path);
    adv.setAdvData(0x09, "abc");
    const QString output =
        outputOf("busctl", {"--address=" + qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS"), "introspect",
                            QDBusConnection::systemBus().baseService(), path});
    QStringList lines;
    for (const QString& line : output.split('\n')) {
        lines << line.simplified();
    }
    QVERIFY2(lines.contains(".Release method - - no-reply"), qPrintable(output));
    QVERIFY2(lines.contains(".Type property s \"peripheral\" emits-change"), qPrintable(output));
    QVERIFY2(lines.contains(".Data property a{yv} 1 9 ay 3 97 98 99 emits-change"), qPrintable(output));
    QVERIFY2(lines.contains(".TxPower property n 127 emits-change"), qPrintable(output));
}

void tst_advertisement_wire::aTakenPathIsReportedAndTheFirstStays()
{
    GapAdvertisement first(nullptr, path);
    LogCapture log;
    auto second = std::make_unique<GapAdvertisement>(nullptr, path);
    QCOMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL), QStringList(failedExport(path)));
    int changes = 0;
    connect(second.get(), &GapAdvertisement::dataChanged, this, [&changes] { ++changes; });
    second->setLocalName("second");
    first.setLocalName("first");
    QCOMPARE(changes, 1);
    QCOMPARE(second->localName(), QString("second"));
    QCOMPARE(second->dbusPath(), path);
    RawBusClient client;
    QCOMPARE(client.get(path, interface, "LocalName").text, QString("<s \"first\">"));
    second.reset();
    QCOMPARE(client.get(path, interface, "LocalName").text, QString("<s \"first\">"));
}

void tst_advertisement_wire::anInvalidPathIsReported_data()
{
    QTest::addColumn<QString>("invalid");
    QTest::newRow("empty") << "";
    QTest::newRow("relative") << "adv";
    QTest::newRow("with a blank") << "/an advertisement";
    QTest::newRow("ends with a slash") << "/adv/";
}

void tst_advertisement_wire::anInvalidPathIsReported()
{
    QFETCH(const QString, invalid);
    const LogCapture log;
    GapAdvertisement adv(nullptr, invalid);
    QCOMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL), QStringList(failedExport(invalid)));
    QCOMPARE(adv.dbusPath(), invalid);
    adv.setAppearance(5);
    QCOMPARE(adv.appearance(), ushort(5));
}

void tst_advertisement_wire::aDeletedOneIsGone()
{
    auto adv = std::make_unique<GapAdvertisement>(nullptr, path);
    RawBusClient client;
    QVERIFY(client.getAll(path, interface).isReply());
    adv.reset();
    QCOMPARE(client.getAll(path, interface).errorName, QString("org.freedesktop.DBus.Error.UnknownObject"));
    const LogCapture log;
    const GapAdvertisement successor(nullptr, path);
    QCOMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL), QStringList());
    QVERIFY(client.getAll(path, interface).isReply());
}

void tst_advertisement_wire::noPropertyChangeIsSignalled()
{
    GapAdvertisement adv(nullptr, path);
    RawBusClient client;
    client.match("type='signal',path='" + path + "'");
    adv.setLocalName("name");
    adv.setAdvData(0x09, "abc");
    const QDBusMessage own = QDBusMessage::createSignal(path, "com.example.Test", "Last");
    QVERIFY(QDBusConnection::systemBus().send(own));
    client.ping();
    const QVector<BusMessage> all = client.takeSignals();
    QCOMPARE(all.size(), 1);
    QCOMPARE(all.constFirst().member, QString("Last"));
}

QTEST_GUILESS_MAIN(tst_advertisement_wire)
#include "tst_advertisement_wire.moc"
