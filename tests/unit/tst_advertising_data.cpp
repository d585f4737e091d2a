#include "GapAdvertisement.h"
#include "LogCapture.h"
#include "NaiveSplit.h"

#include <QRandomGenerator>
#include <QSignalSpy>
#include <QtTest>

namespace {

const char oneBlock[] = "020106";

QByteArray bytes(const char* hexadecimal)
{
    return QByteArray::fromHex(hexadecimal);
}

/** "01: 06, 03: 0d 18" */
QString text(const DBusAdvData& blocks)
{
    QStringList texts;
    for (auto it = blocks.begin(); it != blocks.end(); ++it) {
        texts << QString("%1: %2").arg(QString(QByteArray(1, char(it.key())).toHex()),
                                       QString(it->toHex(' ')));
    }
    return texts.join(", ");
}

} // namespace

Q_DECLARE_METATYPE(const GapAdvertisement*)

/** Raw payloads: how they are split, and the four setters for them. */
class tst_advertising_data : public QObject
{
    Q_OBJECT

public:
    static void initMain() { qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus"); }

private slots:
    void initTestCase() { qRegisterMetaType<const GapAdvertisement*>(); }
    void aPayloadIsSplitIntoBlocks_data();
    void aPayloadIsSplitIntoBlocks();
    void aLineIsWrittenForEachStructure();
    void anyPayloadIsSplitByTheRules();
    void wholePayloadsReplaceAllBlocks();
    void singleBlocksAreAddedOrReplaced();
    void emptyPayloadsClearAndEmit_data();
    void emptyPayloadsClearAndEmit();
    void anEmptyBlockIsKept();
    void everySetterEmitsEachTime();
    void bothPayloadsAreApart();
    void settersWriteTheirEntryLineFirst();
};

void tst_advertising_data::aPayloadIsSplitIntoBlocks_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<QString>("blocks");
    const auto row = [](const char* name, const char* payload, const char* blocks) {
        QTest::newRow(name) << bytes(payload) << QString(blocks);
    };
    row("two structures", "0201060303 0d18", "01: 06, 03: 0d 18");
    row("claims more than there is", "05094142", "09: 41 42");
    row("claims the most there can be", "ff0941", "09: 41");
    row("zero padding", "020106000000", "00: , 01: 06");
    row("zero padding of even length", "02010600000000", "00: , 01: 06");
    row("a zero length first", "00094142020106", "09: 41 42 02 01 06, 41: 42 02 01 06");
    row("a type without data", "01ff", "ff: ");
    row("the last of a type wins", "02ff0102ff02", "ff: 02");
    row("a lone length byte at the end", "02010601", "01: 06");
    row("nothing", "", "");
    row("one byte", "02", "");
    row("one zero byte", "00", "");
    row("two zero bytes", "0000", "00: ");
    row("three zero bytes", "000000", "00: ");
    row("ascending order", "0230010220020210 03", "10: 03, 20: 02, 30: 01");
    row("a length above 127", "800000", "00: 00");
    row("a zero byte in the data", "0401000203", "01: 00 02 03");
    row("ends with a header", "02010605", "01: 06");
    row("a header without data at the end", "0201060509", "01: 06, 09: ");
}

void tst_advertising_data::aPayloadIsSplitIntoBlocks()
{
    QFETCH(const QByteArray, payload);
    QFETCH(const QString, blocks);
    GapAdvertisement adv(nullptr, "/adv");
    QCOMPARE(text(adv.parseAdvertisementData(payload)), blocks);
    QCOMPARE(text(NaiveSplit(payload).result()), blocks);
    adv.setAdvData(payload);
    QCOMPARE(text(adv.data()), blocks);
    QCOMPARE(text(adv.scanData()), QString());
    adv.setScanRspData(payload);
    QCOMPARE(text(adv.scanData()), blocks);
}

void tst_advertising_data::aLineIsWrittenForEachStructure()
{
    const GapAdvertisement adv(nullptr, "/adv");
    const LogCapture log;
    adv.parseAdvertisementData(bytes("02010600ff09414202"));
    QCOMPARE(log.lines().size(), log.texts(log4cplus::DEBUG_LOG_LEVEL).size());
    QCOMPARE(
        log.texts(log4cplus::DEBUG_LOG_LEVEL),
        QStringList({"chunk type: 1 length: 2", "chunk type: 255 length: 0", "chunk type: 9 length: 255"}));
}

void tst_advertising_data::anyPayloadIsSplitByTheRules()
{
    const quint32 seed = QRandomGenerator::global()->generate();
    qInfo("seed %u", seed);
    QRandomGenerator random(seed);
    const GapAdvertisement adv(nullptr, "/adv");
    LogCapture log;
    for (int round = 0; round < 2000; ++round) {
        QByteArray payload(random.bounded(300), 0);
        // Small numbers make many structures, large ones exercise what is cut off.
        const int highest = round % 3 == 0 ? 256 : 8;
        for (char& byte : payload) {
            byte = char(random.bounded(highest));
        }
        const NaiveSplit expected(payload);
        log.clear();
        const DBusAdvData blocks = adv.parseAdvertisementData(payload);
        QVERIFY2(blocks == expected.result(), payload.toHex(' '));
        QVERIFY2(log.texts(log4cplus::DEBUG_LOG_LEVEL) == expected.lines, payload.toHex(' '));
    }
}

void tst_advertising_data::wholePayloadsReplaceAllBlocks()
{
    GapAdvertisement adv(nullptr, "/adv");
    adv.setAdvData(0x09, "single");
    adv.setScanRspData(0x09, "single");
    adv.setAdvData(bytes(oneBlock));
    adv.setScanRspData(bytes("02ff07"));
    QCOMPARE(text(adv.data()), QString("01: 06"));
    QCOMPARE(text(adv.scanData()), QString("ff: 07"));
}

void tst_advertising_data::singleBlocksAreAddedOrReplaced()
{
    GapAdvertisement adv(nullptr, "/adv");
    adv.setAdvData(bytes("020106030341 42"));
    adv.setAdvData(0x03, bytes("00ff"));
    adv.setAdvData(0xff, QByteArray(300, 'x'));
    adv.setAdvData(0x00, bytes("01"));
    QCOMPARE(adv.data().keys(), QList<unsigned char>({0x00, 0x01, 0x03, 0xff}));
    QCOMPARE(adv.data().value(0x03), bytes("00ff"));
    QCOMPARE(adv.data().value(0xff).size(), 300);
    adv.setScanRspData(bytes(oneBlock));
    adv.setScanRspData(0x16, bytes("0f18"));
    QCOMPARE(text(adv.scanData()), QString("01: 06, 16: 0f 18"));
}

void tst_advertising_data::emptyPayloadsClearAndEmit_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::newRow("null") << QByteArray();
    QTest::newRow("empty") << QByteArray("");
    QTest::newRow("one byte") << QByteArray("\x05");
}

void tst_advertising_data::emptyPayloadsClearAndEmit()
{
    QFETCH(const QByteArray, payload);
    GapAdvertisement adv(nullptr, "/adv");
    adv.setAdvData(bytes(oneBlock));
    adv.setScanRspData(bytes(oneBlock));
    const QSignalSpy spy(&adv, &GapAdvertisement::dataChanged);
    adv.setAdvData(payload);
    QVERIFY(adv.data().isEmpty());
    QCOMPARE(spy.size(), 1);
    adv.setScanRspData(payload);
    QVERIFY(adv.scanData().isEmpty());
    QCOMPARE(spy.size(), 2);
}

void tst_advertising_data::anEmptyBlockIsKept()
{
    GapAdvertisement adv(nullptr, "/adv");
    adv.setAdvData(0x09, "name");
    adv.setAdvData(0x09, QByteArray());
    adv.setScanRspData(0x0a, QByteArray());
    QCOMPARE(text(adv.data()), QString("09: "));
    QCOMPARE(text(adv.scanData()), QString("0a: "));
}

void tst_advertising_data::everySetterEmitsEachTime()
{
    GapAdvertisement adv(nullptr, "/adv");
    const QSignalSpy spy(&adv, &GapAdvertisement::dataChanged);
    int calls = 0;
    const auto emitsTwice = [&spy, &calls](const auto& set) {
        set();
        set();
        calls += 2;
        return spy.size() == calls;
    };
    QVERIFY(emitsTwice([&adv] { adv.setScanRspData(0x16, "x"); }));
    QVERIFY(emitsTwice([&adv] { adv.setAdvData(0x16, "x"); }));
    QVERIFY(emitsTwice([&adv] { adv.setScanRspData(bytes(oneBlock)); }));
    QVERIFY(emitsTwice([&adv] { adv.setAdvData(bytes(oneBlock)); }));
}

void tst_advertising_data::bothPayloadsAreApart()
{
    GapAdvertisement adv(nullptr, "/adv");
    adv.setAdvData(0x01, "a");
    adv.setScanRspData(0x02, "b");
    QCOMPARE(text(adv.data()), QString("01: 61"));
    QCOMPARE(text(adv.scanData()), QString("02: 62"));
    QCOMPARE(adv.property("Data").value<DBusAdvData>(), adv.data());
    QCOMPARE(adv.property("ScanData").value<DBusAdvData>(), adv.scanData());
}

void tst_advertising_data::settersWriteTheirEntryLineFirst()
{
    GapAdvertisement adv(nullptr, "/adv");
    const LogCapture log;
    adv.setAdvData(bytes(oneBlock));
    adv.setScanRspData(bytes(oneBlock));
    adv.setAdvData(1, "x");
    adv.setScanRspData(1, "x");
    QStringList texts;
    for (const LogLine& line : log.lines()) {
        texts << line.text;
    }
    const QString chunk("chunk type: 1 length: 2");
    const QString advData("Enter GapAdvertisement::setAdvData: ");
    const QString scanData("Enter GapAdvertisement::setScanRspData: ");
    QCOMPARE(texts, QStringList({advData, chunk, scanData, chunk, advData, scanData}));
    QCOMPARE(log.texts(log4cplus::TRACE_LOG_LEVEL).size(), 4);
}

QTEST_GUILESS_MAIN(tst_advertising_data)
#include "tst_advertising_data.moc"
