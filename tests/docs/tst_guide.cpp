// What docs/guide.md says: its sequence diagram of long values, step by step, and several changes at once.

#include "BleManager.h"
#include "Eventually.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"
#include "PlimBleTest.h"

namespace {

const QByteArray v1(1100, '1');
const QByteArray v2(1100, '2');
const QByteArray v3(1100, '3');

/** What of a value gets to a phone with a notification. */
QList<QByteArray> notified(const QList<QByteArray>& values)
{
    QList<QByteArray> shortened;
    for (const QByteArray& value : values) {
        shortened << value.left(512);
    }
    return shortened;
}

int registrationsOfAdvertisements()
{
    const QDBusMessage answer = PlimBleTest::control("Calls");
    int count = 0;
    const auto calls = qdbus_cast<QList<QVariantMap>>(answer.arguments().value(0));
    for (const QVariantMap& call : calls) {
        count += call.value("member") == "RegisterAdvertisement" ? 1 : 0;
    }
    return count;
}

} // namespace

class TestGuide : public QObject
{
    Q_OBJECT

private:
    static QByteArray read(const GattCharacteristic* characteristic)
    {
        const QVariantList arguments{QVariant::fromValue(QDBusObjectPath(characteristic->dbusPath())),
                                     QVariant::fromValue(ushort(0))};
        return PlimBleTest::control("Read", arguments).arguments().value(0).toByteArray();
    }

private slots:
    void aLongValueIsFetchedPageByPageWhileOthersArePushed()
    {
        PlimBleTest ble;
        GattApplication app(nullptr, "/com/example/guide", "com.example.Guide");
        GattService* service = app.createService("c0de0001-5f2a-4d6b-9a57-1f6d0a3b0008", true);
        GattCharacteristic* control =
            service->createCharacteristic("c0de0002-5f2a-4d6b-9a57-1f6d0a3b0008", GattCharacteristic::Write);
        GattCharacteristic* data =
            service->createCharacteristic("c0de0003-5f2a-4d6b-9a57-1f6d0a3b0008",
                                          GattCharacteristic::Read | GattCharacteristic::Notify, control);
        BleManager::instance()->add(&app);
        EVENTUALLY_COMPARE(ble.applications().size(), 1);
        ble.subscribe(data->dbusPath());

        data->setValue(v1);
        EVENTUALLY_COMPARE(ble.notifications(data->dbusPath()), notified({v1}));
        ble.write(control->dbusPath(), "0");
        EVENTUALLY_COMPARE(ble.notifications(data->dbusPath()).size(),
                           2); // v1, which was kept for a "0", too
        QCOMPARE(read(data), v1.mid(0, 512));
        ble.write(control->dbusPath(), "1");
        data->setValue(v2);
        data->setValue(v3);
        QCOMPARE(read(data), v1.mid(512, 512));
        ble.write(control->dbusPath(), "2");
        QCOMPARE(read(data), v1.mid(1024));
        ble.write(control->dbusPath(), "0");
        EVENTUALLY_COMPARE(ble.notifications(data->dbusPath()), notified({v1, v1, v3}));

        // The control says "0" now, so that pushed values still wait, until the program ends the transfer.
        data->setValue(v2);
        QCOMPARE(data->value(), v3);
        control->setValue({});
        data->setValue(v2);
        QCOMPARE(data->value(), v2);
        EVENTUALLY_COMPARE(ble.notifications(data->dbusPath()), notified({v1, v1, v3, v2}));
    }

    void severalChangesUnderASignalBlockerAreOneRegistration()
    {
        PlimBleTest ble;
        GapAdvertisement advertisement(nullptr, "/com/example/guide/advertisement",
                                       GapAdvertisement::SetProperties);
        GapAdvertisement* adv = &advertisement;
        BleManager::instance()->add(adv);
        EVENTUALLY_COMPARE(ble.advertisements().size(), 1);
        const int before = registrationsOfAdvertisements();
        {
            const QSignalBlocker blocker(adv);
            adv->setServiceUUIDs({"180f"});
            adv->setAppearance(0x0200);
        }
        adv->setLocalName("Changed"); // the only new registration, with all three values
        const auto seen = [&] { return ble.advertisement(advertisement.dbusPath()); };
        EVENTUALLY_COMPARE(ble.advertisements().size(), 1);
        EVENTUALLY_COMPARE(registrationsOfAdvertisements(), before + 1);
        EVENTUALLY_COMPARE(BleManager::instance()->registrationState(adv).phase,
                           BleRegistrationState::Registered);
        QCOMPARE(seen().value("LocalName").toString(), "Changed");
        QCOMPARE(seen().value("ServiceUUIDs").toStringList(), QStringList("180f"));
        QCOMPARE(seen().value("Appearance").toUInt(), 0x0200U);
        QCOMPARE(registrationsOfAdvertisements(), before + 1);
    }
};

QTEST_GUILESS_MAIN(TestGuide)
#include "tst_guide.moc"
