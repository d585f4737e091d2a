// What docs/guide.md says of notifications over sockets.

#include "BleManager.h"
#include "Eventually.h"
#include "GattApplication.h"
#include "PlimBleTest.h"

#include <plim/peripheral.h>

using plim::Access;
using plim::Characteristic;

class TestGuideSockets : public QObject
{
    Q_OBJECT

private slots:
    void aSampleIsSentAgainWhenThereIsRoom()
    {
        const PlimBleTest ble;
        GattApplication app(nullptr, "/com/example/guide", "com.example.Guide");
        auto* service = plim::Service::create(&app, "c0de0001-5f2a-4d6b-9a57-1f6d0a3b000a");
        auto* samples =
            Characteristic::create(service, "c0de0002-5f2a-4d6b-9a57-1f6d0a3b000a", Access().notify());
        samples->setTransport(Characteristic::Transport::Sockets); // before the application is added
        BleManager::instance()->add(&app);
        EVENTUALLY_COMPARE(ble.applications().size(), 1);
        PlimBleTest::Phone phone;
        phone.subscribe(samples->dbusPath());
        phone.takeNotifications(false);

        QList<QByteArray> queue;
        for (int i = 0; i < 2000; ++i) {
            queue << QByteArray::number(i);
        }
        const QList<QByteArray> all = queue;
        const auto send = [&] {
            while (!queue.isEmpty() && samples->notify(queue.first())) {
                queue.removeFirst();
            }
        };
        QObject::connect(samples, &Characteristic::readyToWrite, samples, send);
        send();

        QVERIFY(!queue.isEmpty());
        phone.takeNotifications(true);
        EVENTUALLY_COMPARE(phone.notifications(samples->dbusPath()), all);
    }
};

QTEST_GUILESS_MAIN(TestGuideSockets)
#include "tst_guide_sockets.moc"
