#include "BleDBusTypes.h"
#include "Literals.h"
#include "RawBusClient.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusVirtualObject>
#include <QtTest>

#include <functional>

using DBusPropertyMap = QMap<QDBusObjectPath, QVariantMap>;
Q_DECLARE_METATYPE(DBusPropertyMap)

namespace {

/** Answers any method call with a value, and keeps what it was called with. */
class Sink : public QDBusVirtualObject
{
public:
    QVariant answer;
    QVariantList arguments;

    QString introspect(const QString& /*path*/) const override { return {}; }
    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override
    {
        arguments = message.arguments();
        return connection.send(message.createReply(answer));
    }
};

} // namespace

class tst_types_wire : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void mapsAreWrittenInTheirOwnSignature_data();
    void mapsAreWrittenInTheirOwnSignature();
    void mapsInsideAVariantKeepTheirSignature();
    void advertisingDataIsRead();
    void manufacturerDataIsRead();
    void propertyMapsAreRead();
    void readingKeepsWhatTheMapHeld();
    void theLaterOfTwoEntriesWithOneKeyWins();
    void valuesThatAreNoByteArrayAreConverted();
    void helperTypesAreReadToo();

private:
    BusMessage reply(const QVariant& answer);
    QDBusArgument received(const QString& signature, const QStringList& arguments);

    Sink m_sink;
    RawBusClient m_client;
};

void tst_types_wire::initTestCase()
{
    QVERIFY(!m_client.name().isEmpty());
    registerDBusTypes();
    qDBusRegisterMetaType<DBusAdvData>();
    qDBusRegisterMetaType<DBusManufacturerData>();
    qDBusRegisterMetaType<DBusPropertyMap>();
    QVERIFY(QDBusConnection::systemBus().registerVirtualObject("/sink"_qs, &m_sink));
}

BusMessage tst_types_wire::reply(const QVariant& answer)
{
    m_sink.answer = answer;
    return m_client.call("/sink"_qs, "org.example.Sink"_qs, "Ask"_qs);
}

QDBusArgument tst_types_wire::received(const QString& signature, const QStringList& arguments)
{
    m_sink.answer = true;
    m_client.call("/sink"_qs, "org.example.Sink"_qs, "Give"_qs, signature, arguments);
    return m_sink.arguments.value(0).value<QDBusArgument>();
}

void tst_types_wire::mapsAreWrittenInTheirOwnSignature_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QString>("signature");
    QTest::addColumn<QString>("text");
    const auto add = [](const char* name, const auto& value, const QString& signature, const QString& text) {
        QTest::newRow(name) << QVariant::fromValue(value) << signature << text;
    };
    add("advertising data", DBusAdvData{{0x09, "abc"}}, "a{yv}"_qs, "{9: <ay [616263]>}"_qs);
    add("advertising data by key", DBusAdvData{{0xff, QByteArray("\0\x01", 2)}, {0x00, ""}, {0x7f, "z"}},
        "a{yv}"_qs, "{0: <ay []>, 127: <ay [7a]>, 255: <ay [0001]>}"_qs);
    add("no advertising data", DBusAdvData(), "a{yv}"_qs, "{}"_qs);
    add("manufacturer data", DBusManufacturerData{{0xffff, "b"}, {0x004c, "a"}}, "a{qv}"_qs,
        "{76: <ay [61]>, 65535: <ay [62]>}"_qs);
    add("no manufacturer data", DBusManufacturerData(), "a{qv}"_qs, "{}"_qs);
    add("property map",
        DBusPropertyMap{{QDBusObjectPath("/b"_qs), {{"Two"_qs, 2}, {"One"_qs, "1"_qs}}},
                        {QDBusObjectPath("/a"_qs), {}}},
        "a{oa{sv}}"_qs, R"({"/a": {}, "/b": {"One": <s "1">, "Two": <i 2>}})"_qs);
    add("no property map", DBusPropertyMap(), "a{oa{sv}}"_qs, "{}"_qs);
    add("interfaces", DBusInterfaceList{{"b.B"_qs, {}}, {"a.A"_qs, {{"P"_qs, true}}}}, "a{sa{sv}}"_qs,
        R"({"a.A": {"P": <b true>}, "b.B": {}})"_qs);
    add("objects",
        DBusManagedObjectList{{QDBusObjectPath("/b"_qs), {}},
                              {QDBusObjectPath("/a"_qs), {{"a.A"_qs, {{"P"_qs, QByteArray("x")}}}}}},
        "a{oa{sa{sv}}}"_qs, R"({"/a": {"a.A": {"P": <ay [78]>}}, "/b": {}})"_qs);
    add("no objects", DBusManagedObjectList(), "a{oa{sa{sv}}}"_qs, "{}"_qs);
}

void tst_types_wire::mapsAreWrittenInTheirOwnSignature()
{
    QFETCH(QVariant, value);
    const BusMessage message = reply(value);
    QCOMPARE(message.type, "method_return"_qs);
    QTEST(message.signature, "signature");
    QTEST(message.text, "text");
}

void tst_types_wire::mapsInsideAVariantKeepTheirSignature()
{
    const auto inVariant = [](const auto& map) {
        return QVariant::fromValue(QDBusVariant(QVariant::fromValue(map)));
    };
    QCOMPARE(reply(inVariant(DBusAdvData{{1, "a"}})).text, "<a{yv} {1: <ay [61]>}>"_qs);
    QCOMPARE(reply(inVariant(DBusManufacturerData{{1, "a"}})).text, "<a{qv} {1: <ay [61]>}>"_qs);
    QCOMPARE(reply(inVariant(DBusManufacturerData())).text, "<a{qv} {}>"_qs);
}

void tst_types_wire::advertisingDataIsRead()
{
    const QDBusArgument argument =
        received("a{yv}"_qs, {"2"_qs, "255"_qs, "ay"_qs, "00ff"_qs, "9"_qs, "ay"_qs, "616263"_qs});
    DBusAdvData data;
    QCOMPARE(&(argument >> data), &argument);
    QCOMPARE(data, (DBusAdvData{{9, "abc"}, {255, QByteArray("\0\xff", 2)}}));
}

void tst_types_wire::manufacturerDataIsRead()
{
    DBusManufacturerData data;
    received("a{qv}"_qs, {"2"_qs, "65535"_qs, "ay"_qs, "61"_qs, "0"_qs, "ay"_qs, ""_qs}) >> data;
    QCOMPARE(data, (DBusManufacturerData{{0, ""}, {65535, "a"}}));
}

void tst_types_wire::propertyMapsAreRead()
{
    DBusPropertyMap map;
    received("a{oa{sv}}"_qs,
             {"2"_qs, "/b"_qs, "0"_qs, "/a"_qs, "2"_qs, "N"_qs, "u"_qs, "7"_qs, "S"_qs, "s"_qs, "t"_qs}) >>
        map;
    QCOMPARE(map, (DBusPropertyMap{{QDBusObjectPath("/a"_qs), {{"N"_qs, 7U}, {"S"_qs, "t"_qs}}},
                                   {QDBusObjectPath("/b"_qs), {}}}));
}

void tst_types_wire::readingKeepsWhatTheMapHeld()
{
    DBusAdvData data{{1, "old"}, {2, "kept"}};
    received("a{yv}"_qs, {"1"_qs, "1"_qs, "ay"_qs, "61"_qs}) >> data;
    QCOMPARE(data, (DBusAdvData{{1, "a"}, {2, "kept"}}));
    DBusManufacturerData manufacturers{{2, "kept"}};
    received("a{qv}"_qs, {"1"_qs, "1"_qs, "ay"_qs, "61"_qs}) >> manufacturers;
    QCOMPARE(manufacturers, (DBusManufacturerData{{1, "a"}, {2, "kept"}}));
    DBusPropertyMap map{{QDBusObjectPath("/a"_qs), {{"Old"_qs, 1}}},
                        {QDBusObjectPath("/kept"_qs), {{"K"_qs, 1}}}};
    received("a{oa{sv}}"_qs, {"1"_qs, "/a"_qs, "1"_qs, "New"_qs, "i"_qs, "2"_qs}) >> map;
    // A path that is read again gets a fresh dictionary.
    QCOMPARE(map, (DBusPropertyMap{{QDBusObjectPath("/a"_qs), {{"New"_qs, 2}}},
                                   {QDBusObjectPath("/kept"_qs), {{"K"_qs, 1}}}}));
}

void tst_types_wire::theLaterOfTwoEntriesWithOneKeyWins()
{
    DBusAdvData data;
    received("a{yv}"_qs, {"2"_qs, "1"_qs, "ay"_qs, "61"_qs, "1"_qs, "ay"_qs, "62"_qs}) >> data;
    QCOMPARE(data, (DBusAdvData{{1, "b"}}));
    DBusManufacturerData manufacturers;
    received("a{qv}"_qs, {"2"_qs, "1"_qs, "ay"_qs, "61"_qs, "1"_qs, "ay"_qs, "62"_qs}) >> manufacturers;
    QCOMPARE(manufacturers, (DBusManufacturerData{{1, "b"}}));
}

void tst_types_wire::valuesThatAreNoByteArrayAreConverted()
{
    DBusAdvData data;
    received("a{yv}"_qs, {"4"_qs, "1"_qs, "s"_qs, "text"_qs, "2"_qs, "i"_qs, "-12"_qs, "3"_qs, "as"_qs,
                          "1"_qs, "x"_qs, "4"_qs, "v"_qs, "ay"_qs, "61"_qs}) >>
        data;
    QCOMPARE(data, (DBusAdvData{{1, "text"}, {2, "-12"}, {3, ""}, {4, ""}}));
}

void tst_types_wire::helperTypesAreReadToo()
{
    DBusManagedObjectList objects;
    received("a{oa{sa{sv}}}"_qs, {"1"_qs, "/a"_qs, "1"_qs, "i.I"_qs, "1"_qs, "P"_qs, "ay"_qs, "6162"_qs}) >>
        objects;
    QCOMPARE(objects,
             (DBusManagedObjectList{{QDBusObjectPath("/a"_qs), {{"i.I"_qs, {{"P"_qs, QByteArray("ab")}}}}}}));
}

QTEST_GUILESS_MAIN(tst_types_wire)
#include "tst_types_wire.moc"
