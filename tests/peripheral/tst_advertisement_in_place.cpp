#include "BleManager.h"
#include "Eventually.h"
#include "Literals.h"
#include "PlimBleTest.h"

#include <plim/peripheral/Adapter.h>
#include <plim/peripheral/Advertisement.h>

using plim::Advertisement;

namespace {

const QString path = QStringLiteral("/adv");

int registrations()
{
    int count = 0;
    const auto calls = PlimBleTest::control("Calls"_qs).arguments().value(0).value<QDBusArgument>();
    for (const QVariantMap& call : qdbus_cast<QList<QVariantMap>>(calls)) {
        count += call.value("member"_qs).toString() == "RegisterAdvertisement"_qs ? 1 : 0;
    }
    return count;
}

/** Returns when the library has heard of it. */
void setModalias(const QString& modalias)
{
    PlimBleTest::control("SetProperty"_qs,
                         {QVariant::fromValue(QDBusObjectPath("/org/bluez/hci0"_qs)), "org.bluez.Adapter1"_qs,
                          "Modalias"_qs, QVariant::fromValue(QDBusVariant(modalias))});
    PlimBleTestDetail::awaitDaemon(); // the announcement comes by another connection than the answer
    QCoreApplication::processEvents();
}

} // namespace

/** Changes of the layer's advertisement, with the stand-in daemon. */
class tst_advertisement_in_place : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void aChangeInPlaceRegistersNothing();
    void eachChangeThatCanBeInPlaceIs();
    void otherChangesRegisterAgain();
    void whatBluezWouldRefuseIsRegisteredAgain();
    void withoutAKnownVersionItIsRegisteredAgain_data();
    void withoutAKnownVersionItIsRegisteredAgain();
    void aChangeWhileARegistrationIsPendingFollows();
    void manyChangesThatRegisterAgainGiveFewRegistrations();
    void afterARestartChangesAreInPlaceAgain();
    void theModeCanBeTakenBack();

private:
    /** The manufacturer data that the daemon has, in hex. */
    QByteArray manufacturerData() const
    {
        const QVariant data = m_ble.advertisement(path).value("ManufacturerData"_qs);
        return qdbus_cast<QMap<ushort, QDBusVariant>>(data).value(1).variant().toByteArray();
    }
    void awaitRegistered() const
    {
        EVENTUALLY_COMPARE(BleManager::instance()->registrationState(m_adv.get()).phase,
                           BleRegistrationState::Registered);
        QCoreApplication::sendPostedEvents(); // the news of it
    }
    /** A change can be in place once the daemon's version is known. */
    static void awaitVersion()
    {
        const plim::Adapter adapter; // shares what is known of the daemon with all objects of this thread
        EVENTUALLY_VERIFY(adapter.isPresent());
    }

    PlimBleTest m_ble;
    std::unique_ptr<Advertisement> m_adv;
    int m_before = 0;
};

void tst_advertisement_in_place::init()
{
    m_ble.restart();
    m_adv = std::make_unique<Advertisement>(nullptr, path);
    m_adv->setUpdateMode(Advertisement::InPlace);
    m_adv->setManufacturerData({{1, "first"}});
    BleManager::instance()->add(m_adv.get());
    awaitRegistered();
    awaitVersion();
    m_before = registrations();
}

void tst_advertisement_in_place::cleanup()
{
    BleManager::instance()->remove(m_adv.get());
    m_adv.reset();
    EVENTUALLY_COMPARE(m_ble.advertisements(), QStringList());
}

void tst_advertisement_in_place::aChangeInPlaceRegistersNothing()
{
    for (int i = 0; i < 100; ++i) {
        m_adv->setManufacturerData({{1, QByteArray::number(i)}});
    }
    EVENTUALLY_COMPARE(manufacturerData(), QByteArray("99"));
    QCOMPARE(registrations(), m_before);
}

void tst_advertisement_in_place::eachChangeThatCanBeInPlaceIs()
{
    m_adv->setServiceUUIDs({"180d"_qs});
    m_adv->setServiceData({{"180f"_qs, QByteArray("x")}});
    m_adv->setSolicitedServices({"1805"_qs});
    m_adv->setLocalName("name"_qs);
    m_adv->setManufacturerData({{1, "last"}});
    EVENTUALLY_COMPARE(manufacturerData(), QByteArray("last"));
    const QVariantMap read = m_ble.advertisement(path);
    QCOMPARE(read.value("ServiceUUIDs"_qs).toStringList(), QStringList("180d"_qs));
    QCOMPARE(read.value("SolicitUUIDs"_qs).toStringList(), QStringList("1805"_qs));
    QCOMPARE(read.value("LocalName"_qs).toString(), "name"_qs);
    QVERIFY(read.contains("ServiceData"_qs));
    QCOMPARE(registrations(), m_before);
}

void tst_advertisement_in_place::otherChangesRegisterAgain()
{
    const QVector<std::function<void()>> changes{
        [this] { m_adv->setLocalName({}); }, [this] { m_adv->setDiscoverable(true); },
        [this] { m_adv->setDuration(2); },
        [this] {
            static_cast<GapAdvertisement&>(*m_adv).setManufacturerData({{1, "base"}});
        }};
    for (int i = 0; i < changes.size(); ++i) {
        changes[i]();
        awaitRegistered();
        QCOMPARE(registrations(), m_before + i + 1);
    }
    QCOMPARE(manufacturerData(), QByteArray("base"));
}

void tst_advertisement_in_place::whatBluezWouldRefuseIsRegisteredAgain()
{
    m_adv->setManufacturerData({{1, QByteArray(40, 'x')}});
    EVENTUALLY_COMPARE(BleManager::instance()->registrationState(m_adv.get()).phase,
                       BleRegistrationState::Refused);
    QCOMPARE(registrations(), m_before + 1);
    m_adv->setManufacturerData({{1, "short"}});
    awaitRegistered();
    QCOMPARE(registrations(), m_before + 2);
    QCOMPARE(manufacturerData(), QByteArray("short"));
}

void tst_advertisement_in_place::withoutAKnownVersionItIsRegisteredAgain_data()
{
    QTest::addColumn<QString>("modalias");
    QTest::addColumn<bool>("inPlace");
    QTest::newRow("5.66") << "usb:v1D6Bp0246d0542"_qs << false;
    QTest::newRow("5.73") << "usb:v1D6Bp0246d0549"_qs << false;
    QTest::newRow("5.74") << "usb:v1D6Bp0246d054A"_qs << true;
    QTest::newRow("another vendor") << "usb:v1234p0246d0552"_qs << false;
    QTest::newRow("none") << QString() << false;
}

void tst_advertisement_in_place::withoutAKnownVersionItIsRegisteredAgain()
{
    QFETCH(QString, modalias);
    QFETCH(bool, inPlace);
    setModalias(modalias);
    m_adv->setManufacturerData({{1, "second"}});
    awaitRegistered();
    EVENTUALLY_COMPARE(manufacturerData(), QByteArray("second"));
    QCOMPARE(registrations(), m_before + (inPlace ? 0 : 1));
}

void tst_advertisement_in_place::aChangeWhileARegistrationIsPendingFollows()
{
    // The daemon has read the advertisement, but not answered yet, even if this machine is slow.
    PlimBleTest::control("SetAnswer"_qs,
                         {"RegisterAdvertisement"_qs, "late"_qs, QString(), QString(), 3000U});
    BleManager::instance()->unregisterAdv(m_adv.get());
    EVENTUALLY_COMPARE(m_ble.advertisements(), QStringList());
    BleManager::instance()->registerAdv(m_adv.get());
    EVENTUALLY_COMPARE(m_ble.advertisements(), QStringList(path));
    for (int i = 0; i < 5; ++i) {
        m_adv->setManufacturerData({{1, QByteArray::number(i)}});
    }
    QCOMPARE(BleManager::instance()->registrationState(m_adv.get()).phase, BleRegistrationState::Pending);
    EVENTUALLY_COMPARE(manufacturerData(), QByteArray("4"));
    PlimBleTest::control("SetAnswer"_qs, {"RegisterAdvertisement"_qs, "normal"_qs, QString(), QString(), 0U});
    QCOMPARE(registrations(), m_before + 1);
}

void tst_advertisement_in_place::manyChangesThatRegisterAgainGiveFewRegistrations()
{
    setModalias("usb:v1D6Bp0246d0542"_qs);
    for (int i = 0; i < 100; ++i) {
        m_adv->setManufacturerData({{1, QByteArray::number(i)}});
    }
    EVENTUALLY_COMPARE(registrations(), m_before + 2); // the first, and then all others
    awaitRegistered();
    QCOMPARE(manufacturerData(), QByteArray("99"));
    QCOMPARE(registrations(), m_before + 2);
}

void tst_advertisement_in_place::afterARestartChangesAreInPlaceAgain()
{
    m_ble.restart();
    EVENTUALLY_COMPARE(m_ble.advertisements(), QStringList(path));
    awaitRegistered();
    awaitVersion();
    m_before = registrations();
    m_adv->setManufacturerData({{1, "new"}});
    EVENTUALLY_COMPARE(manufacturerData(), QByteArray("new"));
    QCOMPARE(registrations(), m_before);
}

void tst_advertisement_in_place::theModeCanBeTakenBack()
{
    m_adv->setUpdateMode(Advertisement::RegisterAgain);
    m_adv->setManufacturerData({{1, "second"}});
    awaitRegistered();
    QCOMPARE(registrations(), m_before + 1);
    QCOMPARE(manufacturerData(), QByteArray("second"));
}

QTEST_GUILESS_MAIN(tst_advertisement_in_place)
#include "tst_advertisement_in_place.moc"
