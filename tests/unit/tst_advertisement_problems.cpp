#include "GapAdvertisement.h"
#include "LogCapture.h"

#include <QtTest>

#include <functional>

namespace {

using Change = std::function<void(GapAdvertisement&)>;

/** "error WHERE" or "warning WHERE" for each finding. */
QStringList found(const BleFindings& problems)
{
    QStringList found;
    for (const BleFinding& finding : problems) {
        found << (finding.severity == BleFinding::Error ? "error " : "warning ") + finding.location;
    }
    return found;
}

/** What is found in an advertisement that shows only what the change sets. */
QStringList foundAfter(const Change& change, int advertisingLimit = 31)
{
    GapAdvertisement adv(nullptr, "/adv", GapAdvertisement::SetProperties);
    change(adv);
    return found(adv.problems(advertisingLimit));
}

/** A manufacturer's block of so many bytes. */
DBusManufacturerData block(int bytes)
{
    return {{0xffff, QByteArray(bytes - 4, 'x')}};
}

} // namespace

Q_DECLARE_METATYPE(Change)

/** What an advertisement tells of its own problems. */
class tst_advertisement_problems : public QObject
{
    Q_OBJECT

private slots:
    void aSoundAdvertisementHasNone();
    void allPropertiesAreMoreThanADaemonTakes();
    void whatIsSetRightIsLeftOutOfThat();
    void anUnknownTypeIsRefused();
    void aDiscoverableBroadcastIsRefused();
    void intervalsHaveTheirRange();
    void theShortestIntervalIsNotLongerThanTheLongest();
    void thePowerHasItsRange();
    void textThatIsNoUuidIsRefused();
    void blocksWithoutAByteAreRefused();
    void serviceDataAreByteArrays();
    void rawTypesAreTheDaemonsOrOnes_data();
    void rawTypesAreTheDaemonsOrOnes();
    void rawTypesOfAScanResponseThatNobodyReads();
    void everyPartOfThePayloadCounts_data();
    void everyPartOfThePayloadCounts();
    void thePayloadIsAccountedFor();
    void moreThan31BytesDependOnTheController();
    void theScanResponseHasItsLimit();
    void aNameThatIsCutIsSuspicious();
    void aPathThatCannotBeExportedIsFound();
    void lookingWritesNoLogLine();
};

void tst_advertisement_problems::aSoundAdvertisementHasNone()
{
    QCOMPARE(foundAfter([](GapAdvertisement&) {}), QStringList());
    QCOMPARE(foundAfter([](GapAdvertisement& adv) {
                 adv.setLocalName("Sound");
                 adv.setServiceUUIDs({"180d"});
                 adv.setDiscoverable(true);
                 adv.setMinInterval(100);
                 adv.setMaxInterval(200);
                 adv.setTxPower(4);
                 adv.setAdvData(0x26, "x");
                 adv.setScanRspData(0x26, "x");
             }),
             QStringList());
}

void tst_advertisement_problems::allPropertiesAreMoreThanADaemonTakes()
{
    const GapAdvertisement adv(nullptr, "/adv");
    QCOMPARE(found(adv.problems()), QStringList({"error SecondaryChannel", "error MinInterval",
                                                 "error MaxInterval", "error TxPower"}));
}

void tst_advertisement_problems::whatIsSetRightIsLeftOutOfThat()
{
    GapAdvertisement adv(nullptr, "/adv", GapAdvertisement::AllProperties);
    adv.setMinInterval(20);
    adv.setMaxInterval(20);
    adv.setTxPower(0);
    QCOMPARE(found(adv.problems()), QStringList("error SecondaryChannel"));
}

void tst_advertisement_problems::anUnknownTypeIsRefused()
{
    for (const int type : {-1, 2, 0x10000}) {
        QCOMPARE(
            foundAfter([type](GapAdvertisement& adv) { adv.setType(GapAdvertisement::GapDeviceType(type)); }),
            QStringList("error Type"));
    }
    QCOMPARE(foundAfter([](GapAdvertisement& adv) { adv.setType(GapAdvertisement::Broadcast); }),
             QStringList());
}

void tst_advertisement_problems::aDiscoverableBroadcastIsRefused()
{
    const auto broadcast = [](bool discoverable) {
        return foundAfter([discoverable](GapAdvertisement& adv) {
            adv.setType(GapAdvertisement::Broadcast);
            adv.setDiscoverable(discoverable);
        });
    };
    QCOMPARE(broadcast(true), QStringList("error Discoverable"));
    QCOMPARE(broadcast(false), QStringList());
}

void tst_advertisement_problems::intervalsHaveTheirRange()
{
    const auto interval = [](unsigned int milliseconds) {
        return foundAfter([milliseconds](GapAdvertisement& adv) {
            adv.setMinInterval(milliseconds);
            adv.setMaxInterval(milliseconds);
        });
    };
    const QStringList both{"error MinInterval", "error MaxInterval"};
    QCOMPARE(interval(0), both);
    QCOMPARE(interval(19), both);
    QCOMPARE(interval(20), QStringList());
    QCOMPARE(interval(10485759), QStringList());
    QCOMPARE(interval(10485760), both);
    QCOMPARE(interval(0xffffffff), both);
}

void tst_advertisement_problems::theShortestIntervalIsNotLongerThanTheLongest()
{
    const QStringList wrong("error MinInterval");
    QCOMPARE(foundAfter([](GapAdvertisement& adv) { adv.setMinInterval(100); }), wrong);
    QCOMPARE(foundAfter([](GapAdvertisement& adv) {
                 adv.setMinInterval(101);
                 adv.setMaxInterval(100);
             }),
             wrong);
    QCOMPARE(foundAfter([](GapAdvertisement& adv) { adv.setMaxInterval(100); }), QStringList());
}

void tst_advertisement_problems::thePowerHasItsRange()
{
    const auto power = [](short dBm) {
        return foundAfter([dBm](GapAdvertisement& adv) { adv.setTxPower(dBm); });
    };
    const QStringList wrong("error TxPower");
    QCOMPARE(power(-32768), wrong);
    QCOMPARE(power(-128), wrong);
    QCOMPARE(power(-127), QStringList());
    QCOMPARE(power(20), QStringList());
    QCOMPARE(power(21), wrong);
    QCOMPARE(power(127), wrong);
}

void tst_advertisement_problems::textThatIsNoUuidIsRefused()
{
    QCOMPARE(foundAfter([](GapAdvertisement& adv) {
                 adv.setServiceUUIDs({"180d", "nonsense", "180f", "more"});
             }),
             QStringList({"error ServiceUUIDs", "error ServiceUUIDs"}));
    QCOMPARE(foundAfter([](GapAdvertisement& adv) { adv.setSolicitUUIDs({"nonsense"}); }),
             QStringList("error ServiceUUIDs"));
    QCOMPARE(foundAfter([](GapAdvertisement& adv) {
                 adv.setServiceData({{"nonsense", QByteArray("x")}});
             }),
             QStringList("error ServiceData"));
}

void tst_advertisement_problems::blocksWithoutAByteAreRefused()
{
    QCOMPARE(foundAfter([](GapAdvertisement& adv) {
                 adv.setManufacturerData({{1, "x"}, {2, ""}});
             }),
             QStringList("error ManufacturerData"));
    QCOMPARE(foundAfter([](GapAdvertisement& adv) {
                 adv.setServiceData({{"180d", QByteArray()}});
             }),
             QStringList("error ServiceData"));
    QCOMPARE(foundAfter([](GapAdvertisement& adv) { adv.setAdvData(0x26, ""); }), QStringList("error Data"));
    QCOMPARE(foundAfter([](GapAdvertisement& adv) { adv.setScanRspData(0x26, ""); }),
             QStringList("error ScanData"));
}

void tst_advertisement_problems::serviceDataAreByteArrays()
{
    for (const QVariant& value : {QVariant(7), QVariant("text"), QVariant()}) {
        QCOMPARE(foundAfter([&value](GapAdvertisement& adv) {
                     adv.setServiceData({{"180d", value}});
                 }),
                 QStringList("error ServiceData"));
    }
}

void tst_advertisement_problems::rawTypesAreTheDaemonsOrOnes_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("taken");
    const QSet<int> taken{0x00, 0x0b, 0x0c, 0x13, 0x24, 0x25, 0x26};
    for (int type = 0; type <= 0xff; ++type) {
        const bool isTaken = type >= 0x2c ? type != 0x3d && type != 0xff : taken.contains(type);
        QTest::addRow("0x%02x", type) << type << isTaken;
    }
}

void tst_advertisement_problems::rawTypesAreTheDaemonsOrOnes()
{
    QFETCH(int, type);
    QFETCH(bool, taken);
    QCOMPARE(foundAfter([type](GapAdvertisement& adv) { adv.setAdvData(uint8_t(type), "x"); }),
             taken ? QStringList() : QStringList("error Data"));
    QCOMPARE(foundAfter([type](GapAdvertisement& adv) { adv.setScanRspData(uint8_t(type), "x"); }),
             taken ? QStringList() : QStringList("error ScanData"));
}

void tst_advertisement_problems::rawTypesOfAScanResponseThatNobodyReads()
{
    GapAdvertisement adv(nullptr, "/adv", GapAdvertisement::AllProperties);
    adv.setScanRspData(0x09, "x");
    QCOMPARE(found(adv.problems()).filter("ScanData"), QStringList("warning ScanData"));
}

void tst_advertisement_problems::everyPartOfThePayloadCounts_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<int>("bytes");
    const auto row = [](const char* name, int bytes, const Change& change) {
        QTest::newRow(name) << change << bytes;
    };
    const QString long128 = "6e610001-31c7-4b1a-9f0e-1a3cf2a7d001";
    const QString assigned = "0000180d-0000-1000-8000-00805F9B34FB";
    row("flags", 3, [](GapAdvertisement& adv) { adv.setDiscoverable(true); });
    row("flags without discoverability", 3, [](GapAdvertisement& adv) { adv.setDiscoverable(false); });
    row("no flags for a broadcast", 0, [](GapAdvertisement& adv) {
        adv.setType(GapAdvertisement::Broadcast);
        adv.setDiscoverable(false);
    });
    row("appearance", 4, [](GapAdvertisement& adv) { adv.setAppearance(0x0340); });
    row("transmit power", 3, [](GapAdvertisement& adv) { adv.setIncludeTxPower(true); });
    row("no transmit power", 0, [](GapAdvertisement& adv) { adv.setIncludeTxPower(false); });
    row("16-bit UUID", 4, [](GapAdvertisement& adv) { adv.setServiceUUIDs({"180d"}); });
    row("assigned UUID", 4, [=](GapAdvertisement& adv) { adv.setServiceUUIDs({assigned}); });
    row("32-bit UUID", 6, [](GapAdvertisement& adv) { adv.setServiceUUIDs({"0000180d"}); });
    row("128-bit UUID", 18, [=](GapAdvertisement& adv) { adv.setServiceUUIDs({long128}); });
    row("32-bit UUID in the long form", 18,
        [](GapAdvertisement& adv) { adv.setServiceUUIDs({"feed180d-0000-1000-8000-00805f9b34fb"}); });
    row("UUIDs of one size", 8, [](GapAdvertisement& adv) {
        adv.setServiceUUIDs({"180d", "0x180f", "180a"});
    });
    row("UUIDs of every size", 28, [=](GapAdvertisement& adv) {
        adv.setServiceUUIDs({long128, "180d", "0x0000180f"});
    });
    row("manufacturer data", 11, [](GapAdvertisement& adv) {
        adv.setManufacturerData({{1, "x"}, {2, "yy"}});
    });
    row("service data", 5, [](GapAdvertisement& adv) { adv.setServiceData({{"180d", QByteArray("x")}}); });
    row("service data of a long UUID", 19, [=](GapAdvertisement& adv) {
        adv.setServiceData({{long128, QByteArray("x")}});
    });
    row("raw data", 9, [](GapAdvertisement& adv) {
        adv.setAdvData(0x26, "xx");
        adv.setAdvData(0x24, "yyy");
    });
    row("a name", 0, [](GapAdvertisement& adv) { adv.setLocalName("name"); });
    row("a scan response", 0, [](GapAdvertisement& adv) { adv.setScanRspData(0x26, "xxx"); });
}

void tst_advertisement_problems::everyPartOfThePayloadCounts()
{
    QFETCH(Change, change);
    QFETCH(int, bytes);
    const auto filledUp = [&change](int limit) {
        return foundAfter(
            [&](GapAdvertisement& adv) {
                change(adv);
                adv.setLocalName("name");
            },
            limit);
    };
    QCOMPARE(filledUp(bytes), QStringList());
    if (bytes > 0) {
        QCOMPARE(filledUp(bytes - 1), QStringList("error payload"));
    }
}

void tst_advertisement_problems::thePayloadIsAccountedFor()
{
    GapAdvertisement adv(nullptr, "/adv", GapAdvertisement::SetProperties);
    adv.setDiscoverable(true);
    adv.setServiceUUIDs({"180d"});
    adv.setManufacturerData(block(25));
    const BleFindings problems = adv.problems();
    QCOMPARE(found(problems), QStringList("error payload"));
    QCOMPARE(problems.at(0).message,
             QString("32 bytes are to be broadcast (flags 3, ServiceUUIDs 4, ManufacturerData 25), of which "
                     "the controller can do 31"));
}

void tst_advertisement_problems::moreThan31BytesDependOnTheController()
{
    const auto payload = [](int bytes, int limit) {
        return foundAfter([bytes](GapAdvertisement& adv) { adv.setManufacturerData(block(bytes)); }, limit);
    };
    QCOMPARE(payload(31, 31), QStringList());
    QCOMPARE(payload(32, 31), QStringList("error payload"));
    QCOMPARE(payload(31, 251), QStringList());
    QCOMPARE(payload(32, 251), QStringList("warning payload"));
    QCOMPARE(payload(251, 251), QStringList("warning payload"));
    QCOMPARE(payload(252, 251), QStringList("error payload"));
}

void tst_advertisement_problems::theScanResponseHasItsLimit()
{
    const auto response = [](int bytes, int limit) {
        GapAdvertisement adv(nullptr, "/adv", GapAdvertisement::SetProperties);
        adv.setScanRspData(0x26, QByteArray(bytes - 2, 'x'));
        return found(adv.problems(31, limit));
    };
    QCOMPARE(response(31, 31), QStringList());
    QCOMPARE(response(32, 31), QStringList("error ScanData"));
    QCOMPARE(response(32, 251), QStringList());
}

void tst_advertisement_problems::aNameThatIsCutIsSuspicious()
{
    const auto name = [](const QString& text, int rest) {
        return foundAfter([&](GapAdvertisement& adv) {
            adv.setLocalName(text);
            if (rest > 0) {
                adv.setScanRspData(0x26, QByteArray(rest - 2, 'x'));
            }
        });
    };
    const QStringList cut("warning LocalName");
    QCOMPARE(name(QString(29, 'n'), 0), QStringList());
    QCOMPARE(name(QString(30, 'n'), 0), cut);
    QCOMPARE(name(QString(15, QChar(0xe4)), 0), cut); // two bytes each
    QCOMPARE(name(QString(9, 'n'), 20), QStringList());
    QCOMPARE(name(QString(10, 'n'), 20), cut);
    QCOMPARE(name("n", 31), cut);
}

void tst_advertisement_problems::aPathThatCannotBeExportedIsFound()
{
    const LogCapture log;
    const GapAdvertisement first(nullptr, "/adv", GapAdvertisement::SetProperties);
    const GapAdvertisement second(nullptr, "/adv", GapAdvertisement::SetProperties);
    const GapAdvertisement none(nullptr, "no path", GapAdvertisement::SetProperties);
    QCOMPARE(found(first.problems()), QStringList());
    QCOMPARE(found(second.problems()), QStringList("error /adv"));
    QCOMPARE(found(none.problems()), QStringList("error no path"));
}

void tst_advertisement_problems::lookingWritesNoLogLine()
{
    GapAdvertisement adv(nullptr, "/adv");
    adv.setAdvData(0x09, "");
    adv.setScanRspData(0x26, "x");
    const LogCapture log;
    QVERIFY(found(adv.problems()).size() > 4);
    QCOMPARE(log.lines().size(), 0);
}

QTEST_GUILESS_MAIN(tst_advertisement_problems)
#include "tst_advertisement_problems.moc"
