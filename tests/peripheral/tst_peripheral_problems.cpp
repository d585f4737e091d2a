#include "GattTree.h"

#include <plim/peripheral.h>

#include <QtTest>

using plim::Access;

class tst_peripheral_problems : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_app.reset(); }
    void findingsOfTheBaseAreThereToo();
    void includesOutOfOrderAreFound();
    void lateRefusalsAreFound();
    void protectedAttributesAreFoundOnce();
    void trackingWithoutSubscribingIsFound();
    void versionsThatCannotAreFound();

private:
    std::unique_ptr<GattApplication> m_app;
    plim::Service* m_service = nullptr;
};

void tst_peripheral_problems::init()
{
    m_app = std::make_unique<GattApplication>(nullptr, "/app"_qs, "org.example.Peripheral"_qs);
    m_service = plim::Service::create(m_app.get(), "1812"_qs);
}

void tst_peripheral_problems::findingsOfTheBaseAreThereToo()
{
    plim::Characteristic::create(m_service, "no uuid"_qs, Access());
    QVERIFY(!m_app->problems().isEmpty());
    QCOMPARE(texts(plim::problems(*m_app)), texts(m_app->problems()));
}

void tst_peripheral_problems::includesOutOfOrderAreFound()
{
    auto* battery = plim::Service::create(m_app.get(), "180f"_qs);
    m_service->include(battery);
    QCOMPARE(texts(plim::problems(*m_app)), QStringList());
    battery->include(m_service);
    GattApplication elsewhere(nullptr, "/aaa"_qs, "org.example.Elsewhere"_qs);
    battery->include(elsewhere.createService("180a"_qs, true));
    const BleFindings found = plim::problems(*m_app);
    QCOMPARE(found.size(), 2);
    QCOMPARE(found[0].location, "/app/180f"_qs);
    QVERIFY(found[0].message.contains("comes after its own"_qs));
    QVERIFY(found[1].message.contains("another application"_qs));
    QCOMPARE(found[0].severity, BleFinding::Error);
}

void tst_peripheral_problems::lateRefusalsAreFound()
{
    auto* command =
        plim::Characteristic::create(m_service, "aaaa"_qs, Access().write().writeWithoutResponse());
    auto* plain = plim::Characteristic::create(m_service, "bbbb"_qs, Access().write());
    QCOMPARE(texts(plim::problems(*m_app)), QStringList());
    command->setWriteHandler([](const plim::WriteRequest&) {});
    plain->setWriteHandler([](const plim::WriteRequest&) {});
    const BleFindings found = plim::problems(*m_app);
    QCOMPARE(found.size(), 1);
    QCOMPARE(found[0].location, command->dbusPath());
    QCOMPARE(found[0].severity, BleFinding::Warning);
}

void tst_peripheral_problems::protectedAttributesAreFoundOnce()
{
    auto* characteristic = plim::Characteristic::create(m_service, "aaaa"_qs, Access().read());
    auto* descriptor = plim::Descriptor::create(characteristic, "2901"_qs, Access().read(Access::Encrypted));
    plim::Characteristic::create(m_service, "bbbb"_qs, Access().write(Access::Authenticated));
    const BleFindings found = plim::problems(*m_app);
    QCOMPARE(found.size(), 1);
    QCOMPARE(found[0].location, descriptor->dbusPath());
    QCOMPARE(found[0].severity, BleFinding::Warning);
}

void tst_peripheral_problems::trackingWithoutSubscribingIsFound()
{
    auto* characteristic = plim::Characteristic::create(m_service, "aaaa"_qs, Access().read());
    characteristic->trackSubscribers();
    const BleFindings found = plim::problems(*m_app);
    QCOMPARE(found.size(), 1);
    QCOMPARE(found[0].location, characteristic->dbusPath());
}

void tst_peripheral_problems::versionsThatCannotAreFound()
{
    const auto count = [this](int minor) {
        return int(plim::problems(*m_app, QVersionNumber(5, minor)).size());
    };
    QCOMPARE(count(74), 0);
    m_service->createCharacteristic("aaaa"_qs, readWrite);
    QCOMPARE(plim::problems(*m_app).size(), 0);
    QCOMPARE((QList<int>{count(66), count(73), count(74), count(75), count(76), count(82)}),
             (QList<int>{0, 0, 1, 1, 0, 0}));
    QCOMPARE(plim::problems(*m_app, QVersionNumber(6, 74)).size(), 0);
}

QTEST_GUILESS_MAIN(tst_peripheral_problems)
#include "tst_peripheral_problems.moc"
