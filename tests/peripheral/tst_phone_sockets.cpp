#include "Device.h"

using plim::Access;
using plim::Central;
using plim::Characteristic;

/** Notifications and writes through sockets, by the stand-in daemon, which plays each version in its way. */
class tst_phone_sockets : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void valuesArriveOnceAndInOrder_data() { versions(); }
    void valuesArriveOnceAndInOrder();
    void twoPhonesGetEachValueOnce_data() { versions(); }
    void twoPhonesGetEachValueOnce();
    void unsubscribingIsAHangUp_data() { versions(); }
    void unsubscribingIsAHangUp();
    void writesArriveThroughTheSocket_data() { versions(); }
    void writesArriveThroughTheSocket();
    void anIndicationIsConfirmed_data() { versions(); }
    void anIndicationIsConfirmed();
    void aSlowPhoneIsTold_data() { versions(); }
    void aSlowPhoneIsTold();
    void aBondedPhoneThatIsBackGetsValues_data() { versions(); }
    void aBondedPhoneThatIsBackGetsValues();
    void aPhoneThatLeavesTakesNobodysValues_data() { versions(); }
    void aPhoneThatLeavesTakesNobodysValues();
    void aDaemonThatIsBackGivesSocketsAgain_data() { versions(); }
    void aDaemonThatIsBackGivesSocketsAgain();

private:
    static void versions()
    {
        QTest::addColumn<QString>("version");
        for (const char* version : {"5.66", "5.82"}) {
            QTest::newRow(version) << QString::fromLatin1(version);
        }
    }
    bool isShared() const { return m_version == QLatin1String("5.66"); }
    static QList<QByteArray> numbers(int count)
    {
        QList<QByteArray> all;
        for (int i = 0; i < count; ++i) {
            all << QByteArray::number(i);
        }
        return all;
    }
    void notifyAll(const QList<QByteArray>& values)
    {
        for (const QByteArray& value : values) {
            QVERIFY(m_value->notify(value));
        }
    }

    QString m_version;
    std::unique_ptr<PlimBleTest> m_ble;
    std::unique_ptr<Device> m_device;
    Characteristic* m_value = nullptr;
    QString m_path;
};

void tst_phone_sockets::init()
{
    QFETCH(QString, version);
    m_version = version;
    m_ble = std::make_unique<PlimBleTest>(QStringList{"--bluez", version});
    m_device = std::make_unique<Device>();
    m_value = m_device->add(Access().read().writeWithoutResponse().notify().indicate());
    m_path = m_value->dbusPath();
    m_value->setTransport(Characteristic::Transport::SocketsBothWays);
    QVERIFY(m_device->ready(*m_ble));
}

void tst_phone_sockets::cleanup()
{
    m_device.reset();
    m_ble.reset();
}

void tst_phone_sockets::valuesArriveOnceAndInOrder()
{
    PlimBleTest::Phone phone;
    phone.subscribe(m_path);
    QVERIFY(m_value->notifying() && m_value->property("NotifyAcquired").toBool());
    QCOMPARE(m_value->subscribers(), QList<Central>{Central(phone.device())});
    notifyAll(numbers(100));
    EVENTUALLY_COMPARE(phone.notifications(m_path), numbers(100));
    QCOMPARE(phone.read(m_path), QByteArray("99"));
    EVENTUALLY_COMPARE(m_value->bytesToWrite(Central(phone.device())), 0);
}

void tst_phone_sockets::twoPhonesGetEachValueOnce()
{
    PlimBleTest::Phone phone;
    PlimBleTest::Phone tablet("00:AA:01:01:00:03");
    phone.subscribe(m_path);
    tablet.subscribe(m_path);
    QCOMPARE(m_value->subscribers().size(), isShared() ? 1 : 2);
    notifyAll(numbers(50));
    EVENTUALLY_COMPARE(phone.notifications(m_path), numbers(50));
    EVENTUALLY_COMPARE(tablet.notifications(m_path), numbers(50));
    QCOMPARE(m_value->notify(Central(tablet.device()), "tablet"), !isShared());
    EVENTUALLY_COMPARE(tablet.notifications(m_path).size(), isShared() ? 50 : 51);
    QCOMPARE(phone.notifications(m_path), numbers(50));
}

void tst_phone_sockets::unsubscribingIsAHangUp()
{
    PlimBleTest::Phone phone;
    PlimBleTest::Phone tablet("00:AA:01:01:00:03");
    phone.subscribe(m_path);
    tablet.subscribe(m_path);
    tablet.unsubscribe(m_path);
    EVENTUALLY_COMPARE(m_value->subscribers(), QList<Central>{Central(phone.device())});
    QVERIFY(m_value->notify("one"));
    EVENTUALLY_COMPARE(phone.notifications(m_path), QList<QByteArray>{"one"});
    QCOMPARE(tablet.notifications(m_path), QList<QByteArray>());
    phone.unsubscribe(m_path);
    EVENTUALLY_VERIFY(!m_value->notifying());
    QCOMPARE(m_value->subscribers(), QList<Central>());
}

void tst_phone_sockets::writesArriveThroughTheSocket()
{
    QList<plim::WriteRequest> requests;
    m_value->setWriteHandler([&](const plim::WriteRequest& request) {
        requests << request;
        request.accept();
    });
    PlimBleTest::Phone phone;
    phone.writeWithoutResponse(m_path, "one");
    phone.writeWithoutResponse(m_path, "");
    phone.write(m_path, "two");
    EVENTUALLY_COMPARE(requests.size(), 3);
    QVERIFY(m_value->property("WriteAcquired").toBool());
    QCOMPARE(m_value->value(), QByteArray("two"));
    for (const plim::WriteRequest& request : qAsConst(requests)) {
        QVERIFY(request.isAcknowledged());
        QCOMPARE(request.central(), isShared() ? Central() : Central(phone.device()));
    }
}

void tst_phone_sockets::anIndicationIsConfirmed()
{
    QSignalSpy confirmed(m_value, &Characteristic::confirmed);
    PlimBleTest::Phone phone;
    phone.subscribeToIndications(m_path);
    QVERIFY(m_value->notify("1"));
    EVENTUALLY_COMPARE(confirmed.size(), 1);
    phone.confirmIndications(false);
    notifyAll({"2", "3"});
    EVENTUALLY_COMPARE(phone.notifications(m_path), (QList<QByteArray>{"1", "2"}));
    QCOMPARE(confirmed.size(), 1);
    phone.confirmIndications(true);
    EVENTUALLY_COMPARE(confirmed.size(), 3);
    QCOMPARE(phone.notifications(m_path), (QList<QByteArray>{"1", "2", "3"}));
}

void tst_phone_sockets::aSlowPhoneIsTold()
{
    PlimBleTest::Phone phone;
    phone.subscribe(m_path);
    phone.takeNotifications(false);
    const Central central(phone.device());
    QSignalSpy ready(m_value, &Characteristic::readyToWrite);
    QList<QByteArray> sent;
    for (int i = 0; m_value->notify(QByteArray::number(i)); ++i) {
        sent << QByteArray::number(i);
    }
    QCOMPARE(m_value->missed(), QList<Central>{central});
    QVERIFY(m_value->bytesToWrite(central) > 0);
    QCOMPARE(phone.notifications(m_path), QList<QByteArray>());
    phone.takeNotifications(true);
    EVENTUALLY_COMPARE(ready.size(), 1);
    sent << "last";
    QVERIFY(m_value->notify(sent.last()));
    EVENTUALLY_COMPARE(phone.notifications(m_path), sent);
}

void tst_phone_sockets::aBondedPhoneThatIsBackGetsValues()
{
    PlimBleTest::Phone phone;
    phone.protect("encrypted");
    phone.subscribe(m_path);
    phone.disconnect();
    EVENTUALLY_COMPARE(m_value->notifying(), isShared());
    phone.connect();
    EVENTUALLY_COMPARE(m_value->subscribers(), QList<Central>{Central(phone.device())});
    notifyAll(numbers(20));
    EVENTUALLY_COMPARE(phone.notifications(m_path), numbers(20));
}

void tst_phone_sockets::aPhoneThatLeavesTakesNobodysValues()
{
    PlimBleTest::Phone phone;
    PlimBleTest::Phone tablet("00:AA:01:01:00:03");
    phone.subscribe(m_path);
    tablet.subscribe(m_path);
    QVERIFY(m_value->notify("one"));
    EVENTUALLY_COMPARE(phone.notifications(m_path), QList<QByteArray>{"one"});
    // 5.82 closes the phone's socket, too.
    tablet.disconnect();
    EVENTUALLY_COMPARE(m_value->property("NotifyAcquired").toBool(), isShared());
    EVENTUALLY_COMPARE(m_value->subscribers(), QList<Central>{Central(phone.device())});
    QVERIFY(m_value->notify("two"));
    EVENTUALLY_COMPARE(phone.notifications(m_path), (QList<QByteArray>{"one", "two"}));
}

void tst_phone_sockets::aDaemonThatIsBackGivesSocketsAgain()
{
    PlimBleTest::Phone phone;
    phone.subscribe(m_path);
    m_ble->restart();
    EVENTUALLY_VERIFY(!m_value->notifying());
    EVENTUALLY_COMPARE(m_ble->applications(), QStringList(m_device->app.dbusPath()));
    phone.connect();
    phone.subscribe(m_path);
    QVERIFY(m_value->property("NotifyAcquired").toBool());
    notifyAll(numbers(3));
    EVENTUALLY_COMPARE(phone.notifications(m_path), numbers(3));
}

QTEST_GUILESS_MAIN(tst_phone_sockets)
#include "tst_phone_sockets.moc"
