// The failures that docs/troubleshooting.md tells of: each is brought about, and leaves the words in the log
// that the page shows; then it is cured as the page says.

#include "BleManager.h"
#include "Eventually.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"
#include "LogCapture.h"
#include "PlimBleTest.h"

#include <log4cplus/logger.h>

#include <memory>
#include <vector>

namespace {

const QString success = QStringLiteral("D-Bus call success: registerAdv");

QString failure(const char* words)
{
    return QStringLiteral("D-Bus call from 'registerAdv' failed: ") + words;
}

/** An advertisement as it should be. */
std::unique_ptr<GapAdvertisement> advertisement(int number)
{
    const QString path = QStringLiteral("/com/example/advertisement%1").arg(number);
    auto made = std::make_unique<GapAdvertisement>(nullptr, path, GapAdvertisement::SetProperties);
    made->setLocalName(QStringLiteral("Battery"));
    return made;
}

/** The adapters to which calls of a method went, in order. */
QStringList adapters(const QString& method)
{
    const QDBusMessage answer = PlimBleTest::control("Calls");
    QStringList found;
    for (const QVariantMap& call :
         qdbus_cast<QList<QVariantMap>>(answer.arguments().value(0).value<QDBusArgument>())) {
        if (call.value("member").toString() == method) {
            found << call.value("path").toString();
        }
    }
    return found;
}

} // namespace

class TestTroubleshooting : public QObject
{
    Q_OBJECT

private:
    /** Whether a line is in the log by now. */
    static bool says(const LogCapture& log, const QString& line)
    {
        return (log.texts(log4cplus::DEBUG_LOG_LEVEL) + log.texts(log4cplus::ERROR_LOG_LEVEL)).contains(line);
    }

private slots:
    void initTestCase()
    {
        // As the page wants it first of all.
        log4cplus::Logger::getInstance("Ble").setLogLevel(log4cplus::DEBUG_LOG_LEVEL);
    }

    void theDefaultExportModeIsRefused_data()
    {
        QTest::addColumn<QString>("version");
        QTest::newRow("5.66") << "5.66";
        QTest::newRow("5.82") << "5.82";
    }

    void theDefaultExportModeIsRefused()
    {
        QFETCH(QString, version);
        PlimBleTest ble({"--bluez", version});
        LogCapture log(log4cplus::DEBUG_LOG_LEVEL);
        BleManager manager(nullptr);
        GapAdvertisement adv(nullptr, "/com/example/all");
        for (const BleFinding& finding : adv.problems()) {
            qWarning("%s", qPrintable(finding.text()));
        }
        QVERIFY(!adv.problems().isEmpty());
        manager.add(&adv);
        EVENTUALLY_VERIFY(says(log, failure("Failed to parse advertisement.")));

        const auto cured = advertisement(1);
        QVERIFY(cured->problems().isEmpty());
        manager.add(cured.get());
        EVENTUALLY_VERIFY(says(log, success));
    }

    void tooLongIsRefused()
    {
        PlimBleTest ble;
        LogCapture log(log4cplus::DEBUG_LOG_LEVEL);
        BleManager manager(nullptr);
        const auto adv = advertisement(1);
        adv->setServiceUUIDs({"c0de0001-5f2a-4d6b-9a57-1f6d0a3b0001"});
        adv->setManufacturerData({{0xffff, QByteArray(20, 'x')}});
        manager.add(adv.get());
        EVENTUALLY_VERIFY(says(log, failure("Failed to register advertisement")));
        adv->setManufacturerData({{0xffff, QByteArray(4, 'x')}});
        EVENTUALLY_VERIFY(says(log, success));
    }

    void aControllerDoesSoManyAdvertisements()
    {
        PlimBleTest ble;
        LogCapture log(log4cplus::DEBUG_LOG_LEVEL);
        BleManager manager(nullptr);
        std::vector<std::unique_ptr<GapAdvertisement>> all;
        for (int number = 0; number < 6; ++number) {
            all.push_back(advertisement(number));
            manager.add(all.back().get());
        }
        EVENTUALLY_VERIFY(says(log, failure("Maximum advertisements reached")));
        EVENTUALLY_COMPARE(ble.advertisements().size(), 5); // it has yet to read the first five

        manager.remove(all.front().get());
        EVENTUALLY_COMPARE(ble.advertisements().size(), 4);
        all.back()->setLocalName("Battery");
        EVENTUALLY_VERIFY(ble.advertisements().contains(all.back()->dbusPath()));
    }

    void withoutADaemonNothingIsAnswered()
    {
        PlimBleTest ble({"--absent"});
        LogCapture log(log4cplus::DEBUG_LOG_LEVEL);
        BleManager manager(nullptr);
        const auto adv = advertisement(1);
        manager.add(adv.get());
        ble.appear();
        EVENTUALLY_VERIFY(says(log, success));
        QCOMPARE(adapters("RegisterAdvertisement").size(), 1);
    }

    void theFirstAdapterByNameIsTakenAndThenTheLastToAppear()
    {
        PlimBleTest ble({"--adapter", "hci1", "--adapter", "hci0"});
        BleManager manager(nullptr);
        const auto adv = advertisement(1);
        manager.add(adv.get());
        EVENTUALLY_COMPARE(adapters("RegisterAdvertisement"), QStringList("/org/bluez/hci0"));
        PlimBleTest::control("AddAdapter", {"hci2"});
        EVENTUALLY_COMPARE(adapters("RegisterAdvertisement"),
                           (QStringList{"/org/bluez/hci0", "/org/bluez/hci2"}));
    }

    void theNameIsNeededByNothing()
    {
        PlimBleTest ble;
        BleManager manager(nullptr);
        QVERIFY(QDBusConnection::connectToBus(qgetenv("DBUS_SYSTEM_BUS_ADDRESS"), "other")
                    .registerService("com.example.Taken"));
        GattApplication app(nullptr, "/com/example/taken", "com.example.Taken");
        app.createService("0000180f-0000-1000-8000-00805f9b34fb", true);
        manager.add(&app);
        EVENTUALLY_COMPARE(ble.applications(), QStringList("/com/example/taken"));
        QDBusConnection::disconnectFromBus("other");
    }
};

QTEST_GUILESS_MAIN(TestTroubleshooting)
#include "tst_troubleshooting.moc"
