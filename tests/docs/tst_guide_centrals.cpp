// What docs/guide.md says of centrals and adapters.

#include "BleManager.h"
#include "Eventually.h"
#include "GattApplication.h"
#include "PlimBleTest.h"

#include <plim/peripheral.h>

#include <QDebug>
#include <QSignalSpy>

class TestGuideCentrals : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_ble = std::make_unique<PlimBleTest>(QStringList{"--adapter", "hci0", "--adapter", "hci1"});
    }
    void cleanup() { m_ble.reset(); }

    void whoIsConnected()
    {
        QStringList lines;
        const auto say = [&lines](const QString& line) { lines << line; };

        plim::Centrals centrals;
        QObject::connect(&centrals, &plim::Centrals::centralConnected,
                         [&](const plim::Central& central) { say(central.address() + " is here"); });
        QObject::connect(&centrals, &plim::Centrals::centralDisconnected,
                         [&](const plim::Central& central, plim::Centrals::Reason reason) {
                             const bool timeout = reason == plim::Centrals::Timeout;
                             say(central.address() + (timeout ? " is out of reach" : " has gone"));
                         });

        PlimBleTest::Phone phone;
        EVENTUALLY_COMPARE(centrals.connected().size(), 1);
        phone.disconnect("Timeout");
        phone.connect();
        EVENTUALLY_COMPARE(lines.size(), 3);
        phone.disconnect();
        EVENTUALLY_COMPARE(lines,
                           QStringList({"00:AA:01:01:00:02 is here", "00:AA:01:01:00:02 is out of reach",
                                        "00:AA:01:01:00:02 is here", "00:AA:01:01:00:02 has gone"}));
    }

    void aRequestTellsWhoAsks()
    {
        plim::Centrals centrals;
        GattApplication app(nullptr, "/com/example/guide", "com.example.Guide");
        auto* service = plim::Service::create(&app, "c0de0001-5f2a-4d6b-9a57-1f6d0a3b000b");
        auto* greeting = plim::Characteristic::create(service, "c0de0002-5f2a-4d6b-9a57-1f6d0a3b000b",
                                                      plim::Access().read());
        greeting->setReadHandler([&centrals](const plim::ReadRequest& request) {
            const plim::Central central = centrals.find(request.central());
            request.accept("You are " + central.address().toLatin1());
        });
        BleManager::instance()->add(&app);
        EVENTUALLY_COMPARE(m_ble->applications().size(), 1);
        PlimBleTest::Phone phone;
        EVENTUALLY_COMPARE(centrals.connected().size(), 1);
        QCOMPARE(phone.read(greeting->dbusPath()), QByteArray("You are 00:AA:01:01:00:02"));
        QCOMPARE(centrals.connected().value(0).mtu(), 517);
    }

    void aCentralIsDisconnected()
    {
        plim::Centrals centrals;
        const PlimBleTest::Phone phone;
        EVENTUALLY_COMPARE(centrals.connected().size(), 1);
        const plim::Central central = centrals.connected().constFirst();
        QString end;

        centrals.disconnect(central, [&end](const QDBusError& error) {
            end = error.isValid() ? "failed: " + error.message() : "done";
        });

        EVENTUALLY_COMPARE(end, "done");
        EVENTUALLY_COMPARE(centrals.connected().size(), 0);
    }

    void anAdapterIsChosen()
    {
        GattApplication app(nullptr, "/com/example/guide", "com.example.Guide");
        plim::Service::create(&app, "c0de0001-5f2a-4d6b-9a57-1f6d0a3b000b");
        PlimBleTest::control("ClearCalls");

        const QString address = "00:AA:01:00:00:01";
        plim::Adapter adapter(address);
        BleManager::instance()->setAdapter(address);
        BleManager::instance()->add(&app);

        EVENTUALLY_COMPARE(m_ble->applications().size(), 1);
        EVENTUALLY_COMPARE(adapter.path(), "/org/bluez/hci1");
        const auto calls = PlimBleTest::control("Calls").arguments().constFirst().value<QDBusArgument>();
        QVERIFY(pathsOf("RegisterApplication", calls) == QStringList("/org/bluez/hci1"));

        QSignalSpy aliasChanged(&adapter, &plim::Adapter::aliasChanged);
        adapter.setAlias("Garage door", [](const QDBusError& error) {
            if (error.isValid()) {
                qWarning() << "The name stays as it is:" << error.message();
            }
        });
        EVENTUALLY_COMPARE(adapter.alias(), "Garage door");
        QCOMPARE(aliasChanged.size(), 1);
        BleManager::instance()->setAdapter(QString()); // the next test's manager is the same
    }

private:
    static QStringList pathsOf(const QString& member, const QDBusArgument& calls)
    {
        QStringList paths;
        for (const QVariantMap& call : qdbus_cast<QList<QVariantMap>>(calls)) {
            if (call.value("member").toString() == member) {
                paths << call.value("path").toString();
            }
        }
        return paths;
    }

    std::unique_ptr<PlimBleTest> m_ble;
};

QTEST_GUILESS_MAIN(TestGuideCentrals)
#include "tst_guide_centrals.moc"
