#include "Literals.h"

#include <plim/peripheral/BeaconData.h>

#include <QtTest>

#include <cmath>

namespace {

QByteArray hex(const char* digits)
{
    return QByteArray::fromHex(digits);
}

QByteArray frame(const QVariantMap& data)
{
    return data.value("feaa"_qs).toByteArray().toHex();
}

QString problems(const GapAdvertisement& advertisement)
{
    QStringList texts;
    for (const BleFinding& finding : advertisement.problems()) {
        texts << finding.text();
    }
    return texts.join('\n');
}

QByteArray temperature(std::optional<double> degrees)
{
    plim::EddystoneTelemetry telemetry;
    telemetry.temperature = degrees;
    return frame(plim::eddystoneTlm(telemetry)).mid(8, 4);
}

} // namespace

/** Payloads byte by byte, from the published layouts. */
class tst_beacon_data : public QObject
{
    Q_OBJECT

private slots:
    void anIBeaconHasItsRegionAndNumbersInBigEndian();
    void anEddystoneUidHasTwentyBytes();
    void anEddystoneUidOfAnotherLengthIsNone();
    void anEddystoneUrlIsShortened_data();
    void anEddystoneUrlIsShortened();
    void anEddystoneUrlThatDoesNotFitIsNone_data();
    void anEddystoneUrlThatDoesNotFitIsNone();
    void anEddystoneTlmTellsAllFour();
    void anEddystoneTlmTellsWhatIsNotMeasured();
    void aTemperatureBeyondTheRangeIsTheNearest();
    void aBatteryHasAtMostAHundredPercent();
    void everyPayloadFitsIntoAnAdvertisement();
};

void tst_beacon_data::anIBeaconHasItsRegionAndNumbersInBigEndian()
{
    const GapManufacturerData data =
        plim::iBeacon(QUuid("{e2c56db5-dffb-48d2-b060-d0f5a71096e0}"_qs), 0x0102, 0xfffe, -59);
    QCOMPARE(data.keys(), QList<ushort>{0x004c});
    QCOMPARE(data.value(0x004c).toHex(), QByteArray("0215e2c56db5dffb48d2b060d0f5a71096e00102fffec5"));
}

void tst_beacon_data::anEddystoneUidHasTwentyBytes()
{
    const QVariantMap data = plim::eddystoneUid(-18, hex("00112233445566778899"), hex("aabbccddeeff"));
    QCOMPARE(data.keys(), QStringList("feaa"_qs));
    QCOMPARE(frame(data), QByteArray("00ee00112233445566778899aabbccddeeff0000"));
}

void tst_beacon_data::anEddystoneUidOfAnotherLengthIsNone()
{
    QVERIFY(plim::eddystoneUid(0, QByteArray(9, 'n'), QByteArray(6, 'i')).isEmpty());
    QVERIFY(plim::eddystoneUid(0, QByteArray(10, 'n'), QByteArray(7, 'i')).isEmpty());
    QVERIFY(plim::eddystoneUid(0, {}, {}).isEmpty());
}

void tst_beacon_data::anEddystoneUrlIsShortened_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QByteArray>("expected");
    const auto row = [](const char* url, const QByteArray& scheme, const QByteArray& rest) {
        QTest::newRow(url) << QString::fromLatin1(url) << "10ec" + scheme + rest.toHex();
    };
    row("http://www.example.com/", "00", QByteArray("example\0", 8));
    row("https://www.example.org", "01", "example\x08");
    row("http://a.gov/b", "02",
        "a\x06"
        "b");
    row("https://example.info/", "03", "example\x04");
    row("https://example.com.net", "03", "example\x07\x0a");
    row("HTTPS://example.de/x?y=1", "03", "example.de/x?y=1");
    row("https://seventeen.letters", "03", "seventeen.letters");
}

void tst_beacon_data::anEddystoneUrlIsShortened()
{
    QFETCH(QString, url);
    QFETCH(QByteArray, expected);
    QCOMPARE(frame(plim::eddystoneUrl(-20, url)), expected);
}

void tst_beacon_data::anEddystoneUrlThatDoesNotFitIsNone_data()
{
    QTest::addColumn<QString>("url");
    for (const char* url : {"", "https://", "ftp://a.com", "example.com", "https://eighteen.letters.x",
                            "https://a b", "https://a\n", "https://m\xc3\xbcnchen.de", "https://a\x7f"}) {
        QTest::newRow(url) << QString::fromUtf8(url);
    }
}

void tst_beacon_data::anEddystoneUrlThatDoesNotFitIsNone()
{
    QFETCH(QString, url);
    QVERIFY(plim::eddystoneUrl(0, url).isEmpty());
}

void tst_beacon_data::anEddystoneTlmTellsAllFour()
{
    plim::EddystoneTelemetry telemetry;
    telemetry.batteryMillivolts = 3000;
    telemetry.temperature = -1.5;
    telemetry.advertisements = 0x01020304;
    telemetry.uptimeTenths = 0xfffefdfc;
    QCOMPARE(frame(plim::eddystoneTlm(telemetry)), QByteArray("20000bb8fe8001020304fffefdfc"));
}

void tst_beacon_data::anEddystoneTlmTellsWhatIsNotMeasured()
{
    QCOMPARE(frame(plim::eddystoneTlm({})), QByteArray("20000000800000000000000000000000").left(28));
    QCOMPARE(temperature(std::nan("")), QByteArray("8000"));
}

void tst_beacon_data::aTemperatureBeyondTheRangeIsTheNearest()
{
    QCOMPARE(temperature(20.25), QByteArray("1440"));
    QCOMPARE(temperature(1000), QByteArray("7fff"));
    QCOMPARE(temperature(-1000), QByteArray("8001"));
    QCOMPARE(temperature(-128), QByteArray("8001"));
}

void tst_beacon_data::aBatteryHasAtMostAHundredPercent()
{
    QCOMPARE(plim::batteryServiceData(85), (QVariantMap{{"180f"_qs, hex("55")}}));
    QCOMPARE(plim::batteryServiceData(0), (QVariantMap{{"180f"_qs, hex("00")}}));
    QCOMPARE(plim::batteryServiceData(255), (QVariantMap{{"180f"_qs, hex("64")}}));
}

void tst_beacon_data::everyPayloadFitsIntoAnAdvertisement()
{
    GapAdvertisement beacon(nullptr, "/beacon"_qs, GapAdvertisement::SetProperties);
    beacon.setDiscoverable(true);
    beacon.setManufacturerData(plim::iBeacon(QUuid::createUuid(), 1, 2, -59));
    QCOMPARE(problems(beacon), QString());
    beacon.setManufacturerData({});
    beacon.setServiceUUIDs({plim::eddystoneService()});
    beacon.setServiceData(plim::eddystoneUid(0, QByteArray(10, 'n'), QByteArray(6, 'i')));
    QCOMPARE(problems(beacon), QString());
    beacon.setServiceData(plim::eddystoneUrl(0, "https://seventeen.letters"_qs));
    QCOMPARE(problems(beacon), QString());
    beacon.setServiceData(plim::eddystoneTlm({}));
    QCOMPARE(problems(beacon), QString());
}

QTEST_GUILESS_MAIN(tst_beacon_data)
#include "tst_beacon_data.moc"
