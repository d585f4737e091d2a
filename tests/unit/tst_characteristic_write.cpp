#include "GattTree.h"
#include "LogCapture.h"
#include "PageModel.h"

#include <QSignalSpy>
#include <QtTest>

#include <limits>

namespace {

constexpr int intMax = std::numeric_limits<int>::max();
constexpr int intMin = std::numeric_limits<int>::min();

QList<QVariant> valueChange(const QByteArray& value)
{
    return {characteristicInterface(), QVariantMap{{"Value"_qs, value}}, QStringList()};
}

} // namespace

class tst_characteristic_write : public QObject
{
    Q_OBJECT

private slots:
    void aWriteTellsOnceAfterTheValueIsThere();
    void writesTouchNeitherTheCachedNorTheParkedValue();
    void theFlagsAreNotConsulted();
    void writesFollowTheModel_data();
    void writesFollowTheModel();
    void aNegativePageDropsTheWriteAndSaysSo();
    void aWriteNotifiesAfterItTold();
    void pushedValuesAreNotToldAsWrites();
    void pushedValuesAreHeldBackWhileAPageIsSelected();
    void onlyTheLastParkedValueIsReleased();
    void onlyTheExactTextZeroReleases_data();
    void onlyTheExactTextZeroReleases();
    void aReleaseWithNothingParkedChangesNothing();
    void aValueAppliedAtOnceIsAppliedAgainByTheRelease();
    void parkedValuesAreReleasedOnce();
    void aCharacteristicThatFailedToExportIsNeverReleased();
};

void tst_characteristic_write::aWriteTellsOnceAfterTheValueIsThere()
{
    GattTree tree;
    QList<QByteArray> told;
    connect(tree.plain, &GattCharacteristic::valueChanged, tree.plain, [&] { told << tree.plain->value(); });
    tree.plain->WriteValue("abc", {});
    QCOMPARE(told, QList<QByteArray>{"abc"});
    tree.plain->WriteValue("", {});
    QCOMPARE(told, (QList<QByteArray>{"abc", ""}));
}

void tst_characteristic_write::writesTouchNeitherTheCachedNorTheParkedValue()
{
    GattTree tree;
    tree.paged->setValue("first");
    tree.paged->ReadValue({});
    tree.control->WriteValue("0", {});
    tree.paged->setValue("parked");
    tree.paged->WriteValue("written", {});
    QCOMPARE(tree.paged->cachedValue(), QByteArray("first"));
    QCOMPARE(tree.paged->value(), QByteArray("written"));
    tree.control->WriteValue("0", {});
    QCOMPARE(tree.paged->value(), QByteArray("parked"));
}

void tst_characteristic_write::theFlagsAreNotConsulted()
{
    GattTree tree;
    GattCharacteristic* readOnly =
        tree.service->createCharacteristic("f0"_qs, GattCharacteristic::Read, nullptr);
    readOnly->WriteValue("written", {});
    QCOMPARE(readOnly->value(), QByteArray("written"));
}

void tst_characteristic_write::writesFollowTheModel_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<qlonglong>("page");
    QTest::addColumn<int>("offset");
    // Whatever is no number writes as page 0.
    const QVector<QPair<QByteArray, qlonglong>> pages{{"", 0},
                                                      {"0", 0},
                                                      {"00", 0},
                                                      {"1", 1},
                                                      {"+1", 1},
                                                      {"2", 2},
                                                      {"3", 3},
                                                      {"abc", 0},
                                                      {"1 2", 0},
                                                      {"4194304", 4194304},
                                                      {"2147483647", 2147483647},
                                                      {"2147483648", 0},
                                                      {"-0", 0},
                                                      {"-1", -1},
                                                      {"-2147483648", intMin}};
    const QVector<int> offsets{0, 1, 3, 511, 512, 513, 699, 700, 701, 5000, -1, -512, -513, intMax, intMin};
    for (const auto& page : pages) {
        for (const int offset : offsets) {
            QTest::addRow("\"%s\" at %d", page.first.constData(), offset)
                << page.first << page.second << offset;
        }
    }
}

void tst_characteristic_write::writesFollowTheModel()
{
    QFETCH(QByteArray, text);
    QFETCH(qlonglong, page);
    QFETCH(int, offset);
    GattTree tree;
    tree.paged->setValue(numberedBytes(700));
    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    tree.control->WriteValue(text, {});
    const QSignalSpy told(tree.paged, &GattCharacteristic::valueChanged);
    tree.paged->WriteValue("new", at(offset));
    QCOMPARE(tree.paged->value(), PageModel::writeCharacteristic(numberedBytes(700), offset, page, "new"));
    QCOMPARE(told.size(), page < 0 ? 0 : 1);
}

void tst_characteristic_write::aNegativePageDropsTheWriteAndSaysSo()
{
    GattTree tree;
    tree.paged->setValue("old");
    tree.paged->StartNotify();
    tree.control->WriteValue("-1", {});
    const QSignalSpy told(tree.paged, &GattCharacteristic::valueChanged);
    const QSignalSpy notified(tree.paged, &GattCharacteristic::PropertiesChanged);
    const LogCapture log(log4cplus::DEBUG_LOG_LEVEL);
    tree.paged->WriteValue("new", {});
    QCOMPARE(log.lines().size(), 1);
    QCOMPARE(log.lines().at(0).level, log4cplus::ERROR_LOG_LEVEL);
    QCOMPARE(log.lines().at(0).text, "Invalid page offset: -1"_qs);
    QCOMPARE(tree.paged->value(), QByteArray("old"));
    QCOMPARE(told.size() + notified.size(), 0);
}

void tst_characteristic_write::aWriteNotifiesAfterItTold()
{
    GattTree tree;
    QStringList order;
    connect(tree.plain, &GattCharacteristic::valueChanged, tree.plain, [&] { order << "told"_qs; });
    connect(tree.plain, &GattCharacteristic::PropertiesChanged, tree.plain, [&] { order << "notified"_qs; });
    tree.plain->StartNotify();
    tree.plain->WriteValue("x", {});
    QCOMPARE(order, (QStringList{"told"_qs, "notified"_qs}));
}

void tst_characteristic_write::pushedValuesAreNotToldAsWrites()
{
    GattTree tree;
    const QSignalSpy told(tree.plain, &GattCharacteristic::valueChanged);
    tree.plain->setValue("pushed");
    QCOMPARE(tree.plain->value(), QByteArray("pushed"));
    QCOMPARE(told.size(), 0);
}

void tst_characteristic_write::pushedValuesAreHeldBackWhileAPageIsSelected()
{
    GattTree tree;
    tree.paged->StartNotify();
    tree.control->WriteValue("3", {});
    const QSignalSpy notified(tree.paged, &GattCharacteristic::PropertiesChanged);
    const QSignalSpy told(tree.paged, &GattCharacteristic::valueChanged);
    tree.paged->setValue("parked");
    QCOMPARE(tree.paged->value(), QByteArray());
    QCOMPARE(notified.size(), 0);
    tree.control->WriteValue("0", {});
    QCOMPARE(tree.paged->value(), QByteArray("parked"));
    QCOMPARE(notified.size(), 1);
    QCOMPARE(notified.at(0), valueChange("parked"));
    QCOMPARE(told.size(), 0);
}

void tst_characteristic_write::onlyTheLastParkedValueIsReleased()
{
    GattTree tree;
    tree.paged->StartNotify();
    tree.control->WriteValue("1", {});
    const QSignalSpy notified(tree.paged, &GattCharacteristic::PropertiesChanged);
    for (const char* value : {"one", "two", ""}) {
        tree.paged->setValue(value);
    }
    tree.paged->setValue("three");
    tree.control->WriteValue("0", {});
    QCOMPARE(tree.paged->value(), QByteArray("three"));
    QCOMPARE(notified.size(), 1);
}

void tst_characteristic_write::onlyTheExactTextZeroReleases_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<bool>("releases");
    QTest::newRow("0") << QByteArray("0") << true;
    for (const char* text : {"", "00", " 0", "0 ", "+0", "-0", "1", "abc"}) {
        QTest::addRow("'%s'", text) << QByteArray(text) << false;
    }
    QTest::newRow("0 and a zero byte") << QByteArray("0\0", 2) << false;
}

void tst_characteristic_write::onlyTheExactTextZeroReleases()
{
    QFETCH(QByteArray, text);
    GattTree tree;
    tree.control->WriteValue("1", {});
    tree.paged->setValue("parked");
    tree.control->WriteValue(text, {});
    QTEST(tree.paged->value() == "parked", "releases");
    // Whatever it was, the parked value is not lost by it.
    tree.control->WriteValue("0", {});
    QCOMPARE(tree.paged->value(), QByteArray("parked"));
}

void tst_characteristic_write::aReleaseWithNothingParkedChangesNothing()
{
    GattTree tree;
    tree.paged->WriteValue("written", {});
    tree.paged->StartNotify();
    const QSignalSpy notified(tree.paged, &GattCharacteristic::PropertiesChanged);
    tree.control->WriteValue("0", {});
    QCOMPARE(tree.paged->value(), QByteArray("written"));
    QCOMPARE(notified.size(), 0);
}

void tst_characteristic_write::aValueAppliedAtOnceIsAppliedAgainByTheRelease()
{
    GattTree tree;
    tree.paged->StartNotify();
    const QSignalSpy notified(tree.paged, &GattCharacteristic::PropertiesChanged);
    tree.paged->setValue("pushed");
    QCOMPARE(notified.size(), 1);
    tree.paged->WriteValue("written", {});
    QCOMPARE(notified.size(), 2);
    tree.control->WriteValue("0", {});
    QCOMPARE(tree.paged->value(), QByteArray("pushed"));
    QCOMPARE(notified.size(), 3);
    QCOMPARE(notified.at(2), valueChange("pushed"));
}

void tst_characteristic_write::parkedValuesAreReleasedOnce()
{
    GattTree tree;
    tree.control->WriteValue("1", {});
    tree.paged->setValue("parked");
    tree.control->WriteValue("0", {});
    tree.paged->WriteValue("written", {});
    tree.control->WriteValue("0", {});
    QCOMPARE(tree.paged->value(), QByteArray("written"));
}

void tst_characteristic_write::aCharacteristicThatFailedToExportIsNeverReleased()
{
    GattTree tree;
    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    GattCharacteristic* unexported =
        tree.service->createCharacteristic("d0-1"_qs, readWriteNotify, tree.control);
    tree.control->WriteValue("1", {});
    unexported->setValue("parked");
    tree.control->WriteValue("0", {});
    QCOMPARE(unexported->value(), QByteArray());
    unexported->StartNotify();
    const QSignalSpy notified(unexported, &GattCharacteristic::PropertiesChanged);
    unexported->notifyValueChanged();
    QCOMPARE(notified.size(), 1);
}

QTEST_GUILESS_MAIN(tst_characteristic_write)
#include "tst_characteristic_write.moc"
