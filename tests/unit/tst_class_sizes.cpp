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
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("expected");
    QTest::newRow("BleManager") << int(sizeof(BleManager)) << 80;
    QTest::newRow("GapAdvertisement") << int(sizeof(GapAdvertisement)) << 144;
    QTest::newRow("GattApplication") << int(sizeof(GattApplication)) << 48;
    QTest::newRow("GattService") << int(sizeof(GattService)) << 80;
    QTest::newRow("GattCharacteristic") << int(sizeof(GattCharacteristic)) << 200;
    QTest::newRow("GattDescriptor") << int(sizeof(GattDescriptor)) << 120;
    QTest::newRow("BleFinding") << int(sizeof(BleFinding)) << 32;
    QTest::newRow("BleRegistrationEvent") << int(sizeof(BleRegistrationEvent)) << 64;
    QTest::newRow("BleRegistrationState") << int(sizeof(BleRegistrationState)) << 32;
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
