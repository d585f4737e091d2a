#include "GattTree.h"
#include "LogCapture.h"
#include "PageModel.h"

#include <QtTest>

#include <algorithm>
#include <limits>

namespace {

constexpr int intMax = std::numeric_limits<int>::max();
constexpr int intMin = std::numeric_limits<int>::min();

using Page = std::optional<long long>;

} // namespace

Q_DECLARE_METATYPE(Page)

class tst_characteristic_read : public QObject
{
    Q_OBJECT

private slots:
    void everyReadAtOffsetZeroCallsTheCallback();
    void continuationReadsSliceWhatTheFirstReadFetched();
    void anEmptyFunctionRemovesTheCallback();
    void aReadWithoutOptionsStartsAtZero();
    void theFlagsAreNotConsulted();
    void theValuePropertyShowsTheLastSlice();
    void aFreshCharacteristicIsEmpty();
    void readsFollowTheModel_data();
    void readsFollowTheModel();
    void unusableControlTextReadsUnpagedAndWarns_data();
    void unusableControlTextReadsUnpagedAndWarns();
    void controlTextThatIsANumberDoesNotWarn_data();
    void controlTextThatIsANumberDoesNotWarn();
};

void tst_characteristic_read::everyReadAtOffsetZeroCallsTheCallback()
{
    GattTree tree;
    int calls = 0;
    tree.plain->setReadCallback([&] { return QByteArray(2000, char('0' + ++calls)); });
    // All of it, though it is longer than a page.
    QCOMPARE(tree.plain->ReadValue(at(0)), QByteArray(2000, '1'));
    QCOMPARE(tree.plain->ReadValue(at(0)), QByteArray(2000, '2'));
    QCOMPARE(calls, 2);
    QCOMPARE(tree.plain->value(), QByteArray(2000, '2'));
}

void tst_characteristic_read::continuationReadsSliceWhatTheFirstReadFetched()
{
    GattTree tree;
    QByteArray value = numberedBytes(700);
    int calls = 0;
    tree.plain->setReadCallback([&] {
        ++calls;
        return value;
    });
    QCOMPARE(tree.plain->ReadValue(at(100)), QByteArray());
    QCOMPARE(calls, 0);
    tree.plain->ReadValue(at(0));
    QCOMPARE(tree.plain->ReadValue(at(100)), value.mid(100));
    QCOMPARE(tree.plain->ReadValue(at(-1)), value);
    QCOMPARE(calls, 1);
}

void tst_characteristic_read::anEmptyFunctionRemovesTheCallback()
{
    GattTree tree;
    tree.plain->setReadCallback([] { return QByteArray("from the callback"); });
    tree.plain->setValue("pushed");
    tree.plain->setReadCallback({});
    QCOMPARE(tree.plain->ReadValue(at(0)), QByteArray("pushed"));
}

void tst_characteristic_read::aReadWithoutOptionsStartsAtZero()
{
    GattTree tree;
    tree.plain->setReadCallback([] { return QByteArray("fetched"); });
    QCOMPARE(tree.plain->ReadValue({}), QByteArray("fetched"));
    QCOMPARE(tree.plain->ReadValue({{"Offset"_qs, 3}, {"mtu"_qs, 23}}), QByteArray("fetched"));
}

void tst_characteristic_read::theFlagsAreNotConsulted()
{
    GattTree tree;
    GattCharacteristic* writeOnly =
        tree.service->createCharacteristic("f0"_qs, GattCharacteristic::Write, nullptr);
    writeOnly->setValue("readable");
    QCOMPARE(writeOnly->ReadValue({}), QByteArray("readable"));
}

void tst_characteristic_read::theValuePropertyShowsTheLastSlice()
{
    GattTree tree;
    tree.paged->setValue(numberedBytes(1300));
    QCOMPARE(tree.paged->property("Value"), QVariant(QByteArray()));
    tree.control->WriteValue("2", {});
    const QByteArray slice = tree.paged->ReadValue(at(0));
    QCOMPARE(slice, numberedBytes(1300).mid(1024));
    QCOMPARE(tree.paged->property("Value"), QVariant(slice));
    QCOMPARE(tree.paged->cachedValue(), slice);
    QCOMPARE(tree.paged->value(), numberedBytes(1300));
}

void tst_characteristic_read::aFreshCharacteristicIsEmpty()
{
    const GattTree tree;
    QCOMPARE(tree.plain->value(), QByteArray());
    QCOMPARE(tree.plain->cachedValue(), QByteArray());
    QCOMPARE(tree.plain->ReadValue({}), QByteArray());
}

void tst_characteristic_read::readsFollowTheModel_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<Page>("page");
    QTest::addColumn<int>("offset");
    const QVector<QPair<QByteArray, Page>> pages{{"", {}},
                                                 {"0", 0},
                                                 {"00", 0},
                                                 {"1", 1},
                                                 {"+1", 1},
                                                 {"2", 2},
                                                 {"3", 3},
                                                 {"abc", {}},
                                                 {"-1", -1},
                                                 {"-0", 0},
                                                 {"1.5", {}},
                                                 {"0x1", {}},
                                                 {"1 2", {}},
                                                 {"4194303", 4194303},
                                                 {"4194304", 4194304},
                                                 {"2147483647", 2147483647},
                                                 {"2147483648", {}},
                                                 {"-2147483648", -2147483648LL},
                                                 {"99999999999999999999", {}}};
    const QVector<int> offsets{0,    1,    10,   100, 511,  512,  513,    600,        1024,   1299,
                               1300, 1301, 5000, -1,  -512, -513, intMax, intMax - 1, intMin, intMin + 1};
    for (const auto& page : pages) {
        for (const int offset : offsets) {
            QTest::addRow("\"%s\" at %d", page.first.constData(), offset)
                << page.first << page.second << offset;
        }
    }
}

void tst_characteristic_read::readsFollowTheModel()
{
    QFETCH(QByteArray, text);
    QFETCH(Page, page);
    QFETCH(int, offset);
    GattTree tree;
    const QByteArray pushed = numberedBytes(1300);
    QByteArray fetched = pushed;
    std::reverse(fetched.begin(), fetched.end());
    int calls = 0;
    tree.paged->setValue(pushed);
    tree.paged->setReadCallback([&] {
        ++calls;
        return fetched;
    });
    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    tree.control->WriteValue(text, {});
    const bool fetches = PageModel::callsCallback(offset, page);
    const QByteArray whole = fetches ? fetched : pushed;
    const QByteArray expected = PageModel::readCharacteristic(whole, offset, page);
    QCOMPARE(tree.paged->ReadValue(at(offset)), expected);
    QCOMPARE(calls, fetches ? 1 : 0);
    QCOMPARE(tree.paged->cachedValue(), expected);
    QCOMPARE(tree.paged->value(), whole);
}

void tst_characteristic_read::unusableControlTextReadsUnpagedAndWarns_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("letters") << QByteArray("abc");
    QTest::newRow("too big") << QByteArray("2147483648");
    QTest::newRow("blank") << QByteArray(" ");
    QTest::newRow("zero byte") << QByteArray("\0", 1);
    QTest::newRow("bytes") << QByteArray("\xff\x00\x80", 3);
    QTest::newRow("hexadecimal") << QByteArray("0x10");
    QTest::newRow("10 kB") << QByteArray(10240, 'z');
}

void tst_characteristic_read::unusableControlTextReadsUnpagedAndWarns()
{
    QFETCH(QByteArray, text);
    GattTree tree;
    tree.paged->setValue(numberedBytes(1300));
    tree.control->WriteValue(text, {});
    int calls = 0;
    tree.paged->setReadCallback([&] {
        ++calls;
        return numberedBytes(1200);
    });
    const LogCapture log(log4cplus::DEBUG_LOG_LEVEL);
    QCOMPARE(tree.paged->ReadValue(at(0)), numberedBytes(1200));
    QCOMPARE(calls, 1);
    QCOMPARE(log.lines().size(), 1);
    QCOMPARE(log.lines().at(0).level, log4cplus::WARN_LOG_LEVEL);
    QCOMPARE(log.lines().at(0).text, QString::fromStdString("Invalid page offset: " + text.toStdString()));
}

void tst_characteristic_read::controlTextThatIsANumberDoesNotWarn_data()
{
    QTest::addColumn<QByteArray>("text");
    for (const char* text : {"", "0", "00", "1", "-1", "+1", "2147483647"}) {
        QTest::newRow(text) << QByteArray(text);
    }
}

void tst_characteristic_read::controlTextThatIsANumberDoesNotWarn()
{
    QFETCH(QByteArray, text);
    GattTree tree;
    tree.control->WriteValue(text, {});
    const LogCapture log(log4cplus::DEBUG_LOG_LEVEL);
    tree.paged->ReadValue({});
    QCOMPARE(log.lines().size(), 0);
}

QTEST_GUILESS_MAIN(tst_characteristic_read)
#include "tst_characteristic_read.moc"
