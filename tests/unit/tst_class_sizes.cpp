#include "BleManager.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"

#include <QtTest>

/**
 * Programs put these classes on the stack, so that their sizes are part of the binary interface. scripts/abi
 * compares the whole interface with the last release; until there is one, this test keeps the sizes.
 */
class tst_class_sizes : public QObject
{
    Q_OBJECT

private slots:
    void sizesAreKept_data();
    void sizesAreKept();
};

void tst_class_sizes::sizesAreKept_data()
{
    const auto withQt = [](int five, int six) { return QT_VERSION_MAJOR == 5 ? five : six; };
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("expected");
    QTest::newRow("BleManager") << int(sizeof(BleManager)) << withQt(80, 112);
    QTest::newRow("GapAdvertisement") << int(sizeof(GapAdvertisement)) << withQt(144, 208);
    QTest::newRow("GattApplication") << int(sizeof(GattApplication)) << withQt(48, 64);
    QTest::newRow("GattService") << int(sizeof(GattService)) << withQt(80, 128);
    QTest::newRow("GattCharacteristic") << int(sizeof(GattCharacteristic)) << withQt(200, 312);
    QTest::newRow("GattDescriptor") << int(sizeof(GattDescriptor)) << withQt(120, 200);
    QTest::newRow("BleFinding") << int(sizeof(BleFinding)) << withQt(32, 80);
    QTest::newRow("BleRegistrationEvent") << int(sizeof(BleRegistrationEvent)) << withQt(64, 160);
    QTest::newRow("BleRegistrationState") << int(sizeof(BleRegistrationState)) << withQt(32, 80);
}

void tst_class_sizes::sizesAreKept()
{
#if QT_POINTER_SIZE == 8
    QFETCH(int, size);
    QFETCH(int, expected);
    QCOMPARE(size, expected);
#else
    QSKIP("The sizes are those of 64-bit systems");
#endif
}

QTEST_GUILESS_MAIN(tst_class_sizes)
#include "tst_class_sizes.moc"
