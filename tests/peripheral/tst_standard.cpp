#include "Attributes.h"
#include "GattTree.h"
#include "LogCapture.h"

#include <QDate>
#include <QDateTime>
#include <QTimeZone>
#include <QtTest>

#include <algorithm>

using plim::Format;
using plim::TimeChange;
using plim::Unit;

namespace {

/** Saturday, half a second after a minute. */
QDateTime someTime(const QByteArray& zone = "Europe/Berlin")
{
    return {QDate(2026, 11, 21), QTime(21, 15, 30, 500), QTimeZone(zone)};
}

} // namespace

class tst_standard : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup() { m_app.reset(); }
    void anAssignedNumberIsALongUuid();
    void aDescriptionIsReadBesideTheValue();
    void aTextIsCutOffBetweenTwoCharacters();
    void aFormatHasTheLayoutOfTheSig();
    void aSecondCallReplacesTheFirst();
    void aDescriptorOfTheProgramsOwnStays();
    void deviceInformationShowsWhatIsKnown();
    void aSystemIdOfAnotherSizeIsLeftOut();
    void aBatteryIsReadAndNotified();
    void twoBatteriesStandSideBySide();
    void theCurrentTimeIsReadFromTheClock();
    void theSystemsClockIsTheDefault();
    void anUnknownTimeIsZero();
    void theTimeZoneIsInQuartersOfAnHour_data();
    void theTimeZoneIsInQuartersOfAnHour();
    void aChangedClockIsNotifiedWithItsReason();
    void theTreeHasNoProblems();
    void slotsMayDeleteWhatIsAdded_data();
    void slotsMayDeleteWhatIsAdded();

private:
    /** The value that BlueZ gets, in hexadecimal. */
    QString readHex(const QString& path)
    {
        const BusMessage answer = m_caller.read(path);
        return answer.isError() ? answer.errorText : answer.text;
    }
    /** How a value looks in an answer. */
    static QString hex(const QByteArray& value) { return '[' + QString::fromLatin1(value.toHex()) + ']'; }
    plim::Characteristic* anyCharacteristic()
    {
        return plim::Characteristic::create(plim::Service::create(m_app.get(), "aaaa"_qs), "c0"_qs,
                                            plim::Access().read());
    }

    Caller m_caller;
    std::unique_ptr<GattApplication> m_app;
};

void tst_standard::initTestCase()
{
    m_caller.match("type='signal',interface='org.freedesktop.DBus.Properties'"_qs);
}

void tst_standard::init()
{
    m_app = std::make_unique<GattApplication>(nullptr, "/app"_qs, "org.example.Peripheral"_qs);
}

void tst_standard::anAssignedNumberIsALongUuid()
{
    QCOMPARE(plim::uuid(0x180f), "0000180f-0000-1000-8000-00805f9b34fb"_qs);
    QCOMPARE(plim::uuid(0x1), "00000001-0000-1000-8000-00805f9b34fb"_qs);
}

void tst_standard::aDescriptionIsReadBesideTheValue()
{
    const plim::Descriptor* descriptor = plim::describe(anyCharacteristic(), "Température"_qs);
    QCOMPARE(descriptor->uuid(), plim::uuid(0x2901));
    QCOMPARE(descriptor->flags(), QStringList("read"));
    QCOMPARE(readHex(descriptor->dbusPath()), hex("Température"));
}

void tst_standard::aTextIsCutOffBetweenTwoCharacters()
{
    const LogCapture log;
    const plim::Descriptor* descriptor = plim::describe(anyCharacteristic(), QString(300, QChar(0xe9)) + 'x');
    QCOMPARE(descriptor->value(), QString(256, QChar(0xe9)).toUtf8());
    plim::describe(anyCharacteristic(), 'x' + QString(300, QChar(0xe9)));
    const plim::Descriptor* odd = plim::describe(anyCharacteristic(), 'x' + QString(300, QChar(0xe9)));
    QCOMPARE(odd->value(), ('x' + QString(255, QChar(0xe9))).toUtf8());
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL).constFirst(),
             "A text of 601 bytes is cut off: an attribute holds 512"_qs);
}

void tst_standard::aFormatHasTheLayoutOfTheSig()
{
    const plim::Descriptor* descriptor =
        plim::setFormat(anyCharacteristic(), {Format::Int16, Unit::DegreeCelsius, -2, 0x0106});
    QCOMPARE(descriptor->uuid(), plim::uuid(0x2904));
    QCOMPARE(readHex(descriptor->dbusPath()), hex(QByteArray::fromHex("0efe2f27010601")));
}

void tst_standard::aSecondCallReplacesTheFirst()
{
    plim::Characteristic* characteristic = anyCharacteristic();
    const plim::Descriptor* text = plim::describe(characteristic, "a longer text"_qs);
    const plim::Descriptor* format = plim::setFormat(characteristic, {Format::UInt8});
    QCOMPARE(plim::describe(characteristic, "short"_qs), text);
    QCOMPARE(plim::setFormat(characteristic, {Format::Utf8}), format);
    QCOMPARE(characteristic->descriptors().size(), 2);
    QCOMPARE(text->value(), QByteArray("short"));
    QCOMPARE(format->value(), QByteArray::fromHex("19000027010000"));
}

void tst_standard::aDescriptorOfTheProgramsOwnStays()
{
    plim::Characteristic* characteristic = anyCharacteristic();
    GattDescriptor* own = characteristic->addDescriptor(plim::uuid(0x2901), GattDescriptor::Read);
    own->WriteValue("own", {});
    QVERIFY(plim::describe(characteristic, "text"_qs));
    QCOMPARE(own->value(), QByteArray("own"));
}

void tst_standard::deviceInformationShowsWhatIsKnown()
{
    plim::DeviceInformation values;
    values.manufacturer = "Example"_qs;
    values.model = "Lamp 2"_qs;
    values.serialNumber = "0001"_qs;
    values.hardwareRevision = "A"_qs;
    values.firmwareRevision = "1.2.3"_qs;
    values.softwareRevision = "4"_qs;
    values.systemId = QByteArray::fromHex("0102030405aabbcc");
    values.pnpId = plim::PnpId{plim::PnpId::Usb, 0x1d6b, 0x0246, 0x0213};
    const plim::Service* service = plim::addDeviceInformation(m_app.get(), values);
    const QMap<quint16, QByteArray> expected{{0x2a29, "Example"},
                                             {0x2a24, "Lamp 2"},
                                             {0x2a25, "0001"},
                                             {0x2a27, "A"},
                                             {0x2a26, "1.2.3"},
                                             {0x2a28, "4"},
                                             {0x2a23, QByteArray::fromHex("0102030405aabbcc")},
                                             {0x2a50, QByteArray::fromHex("026b1d46021302")}};
    QCOMPARE(service->characteristics().size(), expected.size());
    for (const GattCharacteristic* characteristic : service->characteristics()) {
        const auto assigned = quint16(characteristic->uUID().mid(4, 4).toUInt(nullptr, 16));
        QCOMPARE(readHex(characteristic->dbusPath()), hex(expected.value(assigned)));
        QCOMPARE(characteristic->flags(), QStringList("read"));
    }
    GattApplication other(nullptr, "/other"_qs, "org.example.Other"_qs);
    QCOMPARE(plim::addDeviceInformation(&other, {})->characteristics().size(), 0);
}

void tst_standard::aSystemIdOfAnotherSizeIsLeftOut()
{
    const LogCapture log;
    plim::DeviceInformation values;
    values.systemId = "seven..";
    QCOMPARE(plim::addDeviceInformation(m_app.get(), values)->characteristics().size(), 0);
    QCOMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL),
             QStringList("The system ID is left out: it has 7 bytes instead of 8"));
}

void tst_standard::aBatteryIsReadAndNotified()
{
    plim::Characteristic* level = plim::addBattery(m_app.get(), 87);
    QCOMPARE(level->uUID(), plim::uuid(0x2a19));
    QCOMPARE(level->flags(), (QStringList{"read", "notify"}));
    QCOMPARE(readHex(level->dbusPath()), hex(QByteArray::fromHex("57")));
    QCOMPARE(level->descriptors().constFirst()->value(), QByteArray::fromHex("0400ad27010000"));
    m_caller.plainCall(level->dbusPath(), "StartNotify");
    m_caller.takeSignals();
    plim::setBatteryLevel(level, 101);
    m_caller.ping();
    const auto notified = m_caller.takeSignals();
    QCOMPARE(notified.size(), 1);
    QVERIFY2(notified.constFirst().text.contains("<ay [64]>"), qPrintable(notified.constFirst().text));
    plim::setBatteryLevel(level, -1);
    QCOMPARE(level->value(), QByteArray(1, '\0'));
}

void tst_standard::twoBatteriesStandSideBySide()
{
    const plim::Characteristic* left = plim::addBattery(m_app.get(), 1);
    const plim::Characteristic* right = plim::addBattery(m_app.get(), 2, "right"_qs);
    QCOMPARE(readHex(left->dbusPath()), hex(QByteArray::fromHex("01")));
    QCOMPARE(readHex(right->dbusPath()), hex(QByteArray::fromHex("02")));
}

void tst_standard::theCurrentTimeIsReadFromTheClock()
{
    QDateTime clock = someTime();
    const plim::Characteristic* time = plim::addCurrentTime(m_app.get(), [&clock] { return clock; });
    QCOMPARE(time->uUID(), plim::uuid(0x2a2b));
    QCOMPARE(readHex(time->dbusPath()), hex(QByteArray::fromHex("ea070b15150f1e068000")));
    clock = clock.addDays(1).addMSecs(499);
    QCOMPARE(readHex(time->dbusPath()), hex(QByteArray::fromHex("ea070b16150f1e07ff00")));
}

void tst_standard::theSystemsClockIsTheDefault()
{
    const plim::Characteristic* time = plim::addCurrentTime(m_app.get());
    const int now = QDate::currentDate().year();
    const QString expected = hex(QByteArray(1, char(now & 0xff)) + QByteArray(1, char(now >> 8))).chopped(1);
    const QString read = readHex(time->dbusPath());
    QVERIFY2(read.startsWith(expected), qPrintable(read));
}

void tst_standard::anUnknownTimeIsZero()
{
    const plim::Characteristic* time = plim::addCurrentTime(m_app.get(), [] { return QDateTime(); });
    QCOMPARE(readHex(time->dbusPath()), hex(QByteArray(10, '\0')));
}

void tst_standard::theTimeZoneIsInQuartersOfAnHour_data()
{
    QTest::addColumn<QByteArray>("zone");
    QTest::addColumn<int>("month");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("UTC") << QByteArray("UTC") << 1 << QByteArray::fromHex("0000");
    QTest::newRow("an hour east") << QByteArray("Europe/Berlin") << 1 << QByteArray::fromHex("0400");
    QTest::newRow("in summer") << QByteArray("Europe/Berlin") << 7 << QByteArray::fromHex("0404");
    QTest::newRow("five hours west") << QByteArray("America/New_York") << 1 << QByteArray::fromHex("ec00");
    QTest::newRow("three quarters") << QByteArray("Asia/Kathmandu") << 1 << QByteArray::fromHex("1700");
    QTest::newRow("half an hour in summer")
        << QByteArray("Australia/Lord_Howe") << 1 << QByteArray::fromHex("2a02");
}

void tst_standard::theTimeZoneIsInQuartersOfAnHour()
{
    QFETCH(QByteArray, zone);
    QFETCH(int, month);
    QFETCH(QByteArray, expected);
    const QDateTime time(QDate(2026, month, 1), QTime(12, 0), QTimeZone(zone));
    const plim::Characteristic* currentTime = plim::addCurrentTime(m_app.get(), [time] { return time; });
    const QString path = currentTime->service().path() + "/00002a0f_0000_1000_8000_00805f9b34fb";
    QCOMPARE(readHex(path), hex(expected));
}

void tst_standard::aChangedClockIsNotifiedWithItsReason()
{
    plim::Characteristic* time = plim::addCurrentTime(m_app.get(), [] { return someTime(); });
    m_caller.plainCall(time->dbusPath(), "StartNotify");
    m_caller.takeSignals();
    plim::notifyTime(time, someTime(), TimeChange::TimeZone | TimeChange::DaylightSaving);
    m_caller.ping();
    QCOMPARE(m_caller.takeSignals().size(), 1);
    QCOMPARE(time->value(), QByteArray::fromHex("ea070b15150f1e06800c"));
    QCOMPARE(readHex(time->dbusPath()), hex(QByteArray::fromHex("ea070b15150f1e06800c")));
}

void tst_standard::theTreeHasNoProblems()
{
    plim::addDeviceInformation(m_app.get(), {"Example"_qs, "Lamp"_qs, {}, {}, {}, {}, {}, {}});
    plim::describe(plim::addBattery(m_app.get(), 50), "the main battery"_qs);
    plim::addCurrentTime(m_app.get());
    QCOMPARE(texts(plim::problems(*m_app)).join("; "_qs), QString());
}

void tst_standard::slotsMayDeleteWhatIsAdded_data()
{
    QTest::addColumn<int>("change");
    QTest::addColumn<bool>("wholeService");
    for (int change = 1; change <= 4; ++change) {
        QTest::addRow("service at change %d", change) << change << true;
        QTest::addRow("characteristic at change %d", change) << change << false;
    }
}

void tst_standard::slotsMayDeleteWhatIsAdded()
{
    QFETCH(const int, change);
    QFETCH(const bool, wholeService);
    const auto addTo = [&](const auto& add) {
        init();
        int changes = 0;
        QObject context;
        connect(m_app.get(), &GattApplication::applicationChanged, &context, [&] {
            if (++changes == change) {
                const QList<GattService*> services = m_app->services();
                GattService* service = services.isEmpty() ? nullptr : services.constFirst();
                const QList<GattCharacteristic*> all =
                    service ? service->characteristics() : QList<GattCharacteristic*>();
                delete (wholeService ? static_cast<QObject*>(service) : all.value(0));
            }
        });
        const QObject* added = add();
        const QList<QObject*> all = m_app->findChildren<QObject*>();
        return !added || std::count(all.begin(), all.end(), added) == 1;
    };
    QVERIFY(addTo([this] {
        return plim::addDeviceInformation(m_app.get(), {"Example"_qs, "Lamp"_qs, "1"_qs, {}, {}, {}, {}, {}});
    }));
    QVERIFY(addTo([this] { return plim::addBattery(m_app.get(), 50); }));
    QVERIFY(addTo([this] { return plim::addCurrentTime(m_app.get()); }));
}

QTEST_GUILESS_MAIN(tst_standard)
#include "tst_standard.moc"
