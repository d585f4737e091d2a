// What docs/guide.md says of access, requests, subscribers, indications and standard services.

#include "BleManager.h"
#include "Eventually.h"
#include "GattApplication.h"
#include "PlimBleTest.h"

#include <plim/peripheral.h>

#include <QTimer>

using plim::Access;

namespace {

const QString report = QStringLiteral("00002a4d-0000-1000-8000-00805f9b34fb");

} // namespace

class TestGuideRequests : public QObject
{
    Q_OBJECT

private:
    void add()
    {
        BleManager::instance()->add(m_app.get());
        EVENTUALLY_COMPARE(m_ble->applications().size(), 1);
    }
    plim::Characteristic* create(const Access& access)
    {
        return plim::Characteristic::create(m_service, "c0de0002-5f2a-4d6b-9a57-1f6d0a3b000a", access);
    }

    std::unique_ptr<PlimBleTest> m_ble;
    std::unique_ptr<GattApplication> m_app;
    plim::Service* m_service = nullptr;

private slots:
    void init()
    {
        m_ble = std::make_unique<PlimBleTest>();
        m_app = std::make_unique<GattApplication>(nullptr, "/com/example/guide", "com.example.Guide");
        m_service = plim::Service::create(m_app.get(), "c0de0001-5f2a-4d6b-9a57-1f6d0a3b000a");
    }
    void cleanup()
    {
        m_app.reset();
        m_ble.reset();
    }

    void aReadIsAnsweredLater()
    {
        plim::Characteristic* temperature = create(Access().read());
        temperature->setReadHandler([](const plim::ReadRequest& request) {
            QTimer::singleShot(200, qApp, [request] { request.accept("21.5"); });
        });
        add();
        PlimBleTest::Phone phone;
        QCOMPARE(phone.read(temperature->dbusPath()), QByteArray("21.5"));
    }

    void writtenValuesAreNotNotifiedUnlessAskedFor()
    {
        plim::Characteristic* setting = create(Access().read().write().notify());
        setting->setWriteHandler([](const plim::WriteRequest& request) {
            const bool forAll = request.value().startsWith("all");
            request.accept(forAll ? plim::WriteRequest::Notify : plim::WriteRequest::DoNotNotify);
        });
        add();
        PlimBleTest::Phone phone;
        phone.subscribe(setting->dbusPath());
        phone.write(setting->dbusPath(), "one");
        phone.write(setting->dbusPath(), "all");
        EVENTUALLY_COMPARE(phone.notifications(setting->dbusPath()), QList<QByteArray>{"all"});
    }

    void subscribersAreGreeted()
    {
        plim::Characteristic* news = create(Access().notify());
        news->trackSubscribers();
        QStringList greeted;
        QObject::connect(news, &plim::Characteristic::subscribed, news, [&](const plim::Central& central) {
            greeted << central.path(); // /org/bluez/hci0/dev_00_AA_01_01_00_02
        });
        add();
        PlimBleTest::Phone phone;
        phone.subscribe(news->dbusPath());
        QCOMPARE(greeted, QStringList("/org/bluez/hci0/dev_00_AA_01_01_00_02"));
        QCOMPARE(news->subscribers().size(), 1);
    }

    void reportsOfOneUuidAreToldApart()
    {
        auto* keys = plim::Characteristic::create(m_service, report, Access().read().notify(), "keys");
        auto* leds = plim::Characteristic::create(m_service, report, Access().read().write(), "leds");
        keys->setValue("k");
        leds->setValue("l");
        add();
        PlimBleTest::Phone phone;
        QCOMPARE(phone.read(keys->dbusPath()), QByteArray("k"));
        QCOMPARE(phone.read(leds->dbusPath()), QByteArray("l"));
    }

    void standardServicesNeedNoLayouts()
    {
        plim::DeviceInformation device;
        device.manufacturer = "Example";
        device.firmwareRevision = "1.2.3";
        plim::addDeviceInformation(m_app.get(), device);

        plim::Characteristic* battery = plim::addBattery(m_app.get(), 87);
        plim::setBatteryLevel(battery, 86); // notifies

        plim::addCurrentTime(m_app.get());

        const Access access = Access().read();
        auto* humidity = plim::Characteristic::create(m_service, plim::uuid(0x2a6f), access);
        plim::describe(humidity, "in the cellar");
        plim::setFormat(humidity, {plim::Format::UInt16, plim::Unit::Percent, -2});
        add();
        PlimBleTest::Phone phone;
        QCOMPARE(phone.read(m_ble->find(plim::uuid(0x2a29))), QByteArray("Example"));
        QCOMPARE(phone.read(m_ble->find(plim::uuid(0x2a19))), QByteArray("V"));
        QCOMPARE(phone.read(m_ble->find(plim::uuid(0x2a2b))).size(), 10);
        QCOMPARE(phone.read(m_ble->find(plim::uuid(0x2901))), QByteArray("in the cellar"));
    }

    void problemsAreFoundBeforehand()
    {
        create(Access().write(Access::Encrypted).writeWithoutResponse())->setWriteHandler([](const auto&) {});
        const BleFindings problems = plim::problems(*m_app);
        QStringList texts;
        for (const BleFinding& problem : problems) {
            texts << problem.text();
        }
        QCOMPARE(texts.filter("acknowledges writes before the write handler decides").size(), 1);
        QCOMPARE(texts.filter("takes a protected link").size(), 1);
    }

    void aTestHasPhonesOfItsOwn()
    {
        plim::Characteristic* secret = create(Access().read(Access::Encrypted));
        secret->setValue("secret");
        add();
        const QString path = secret->dbusPath();
        PlimBleTest::Phone phone;
        phone.read(path);
        QCOMPARE(phone.error(), "0x0f Insufficient Encryption");
        phone.protect("encrypted");
        QCOMPARE(phone.read(path), QByteArray("secret"));
    }
};

QTEST_GUILESS_MAIN(TestGuideRequests)
#include "tst_guide_requests.moc"
