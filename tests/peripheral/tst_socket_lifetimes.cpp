#include "SocketScenario.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QPointer>
#include <QSignalSpy>
#include <QTimer>

using plim::Access;
using plim::Central;
using plim::Characteristic;

/** The end of objects and sockets in every slot and handler, and at every moment. */
class tst_socket_lifetimes : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_scenario.reset(); }
    void slotsMayDeleteTheCharacteristic_data();
    void slotsMayDeleteTheCharacteristic();
    void aSocketMayEndWhileSlotsUseItsCentral();
    void aLostSubscriptionThatIsFoundMayDeleteTheCharacteristic();
    void aHandlerMayDeleteTheCharacteristic();
    void aDeletedCharacteristicClosesItsSockets();
    void aSocketMayBeClosedBeforeItIsUsed();
    void aSocketMayBeShutDownHalf_data();
    void aSocketMayBeShutDownHalf();
    void aHandlerMayRunAnEventLoop();
    void theLastValueOfAClosedSocketIsHandled();

private:
    std::unique_ptr<SocketScenario> m_scenario;
    Characteristic* m_characteristic = nullptr;
};

void tst_socket_lifetimes::init()
{
    m_scenario =
        std::make_unique<SocketScenario>(Access().read().write().writeWithoutResponse().notify().indicate());
    m_characteristic = m_scenario->characteristic;
    QVERIFY(m_scenario->ready());
}

void tst_socket_lifetimes::slotsMayDeleteTheCharacteristic_data()
{
    QTest::addColumn<QString>("signal");
    for (const char* signal : {"subscribed", "unsubscribed", "notifyStateChanged", "confirmed",
                               "readyToWrite", "valueChanged", "PropertiesChanged"}) {
        QTest::newRow(signal) << QString::fromLatin1(signal);
    }
}

void tst_socket_lifetimes::slotsMayDeleteTheCharacteristic()
{
    QFETCH(QString, signal);
    const QPointer<Characteristic> alive = m_characteristic;
    const auto end = [this] { delete m_characteristic; };
    const auto connectTo = [&](const char* name, auto member) {
        if (signal == QLatin1String(name)) {
            QObject::connect(m_characteristic, member, this, end);
        }
    };
    connectTo("subscribed", &Characteristic::subscribed);
    connectTo("unsubscribed", &Characteristic::unsubscribed);
    connectTo("notifyStateChanged", &GattCharacteristic::notifyStateChanged);
    connectTo("confirmed", &Characteristic::confirmed);
    connectTo("readyToWrite", &Characteristic::readyToWrite);
    connectTo("valueChanged", &GattCharacteristic::valueChanged);
    connectTo("PropertiesChanged", &GattCharacteristic::PropertiesChanged);
    const auto phone = m_scenario->subscribe();
    const auto writer = m_scenario->socket("AcquireWrite"_qs);
    while (alive && m_characteristic->notify("x")) {
    }
    if (phone) {
        phone->readAll();
        phone->write("\1");
        phone->write("\1");
    }
    if (writer) {
        writer->write("one");
        writer->write("two");
    }
    if (signal == "unsubscribed"_qs) {
        phone->close();
    }
    EVENTUALLY_VERIFY(!alive);
    QVERIFY(!phone || phone->descriptor() < 0 || phone->isHungUp());
    QVERIFY(!writer || writer->isHungUp());
}

void tst_socket_lifetimes::aSocketMayEndWhileSlotsUseItsCentral()
{
    const auto phone = m_scenario->subscribe();
    while (m_characteristic->notify("x")) {
    }
    QString name;
    connect(m_characteristic, &Characteristic::readyToWrite, this, [&] {
        QEventLoop loop;
        QTimer::singleShot(10000, &loop, &QEventLoop::quit);
        // The loop deletes what has ended in it.
        connect(m_characteristic, &Characteristic::unsubscribed, &loop,
                [&loop] { QTimer::singleShot(50, &loop, &QEventLoop::quit); });
        phone->close();
        loop.exec();
    });
    connect(m_characteristic, &Characteristic::readyToWrite, this,
            [&](const Central& central) { name = central.path(); });
    phone->readAll();
    QTRY_VERIFY(!name.isEmpty());
    QCOMPARE(name, phonePath);
    QCOMPARE(m_characteristic->subscribers(), QList<Central>());
    m_characteristic->disconnect(this); // what the slots use ends here
}

/** A new socket of one central makes the library look again at what is known of the others. */
void tst_socket_lifetimes::aLostSubscriptionThatIsFoundMayDeleteTheCharacteristic()
{
    const QPointer<Characteristic> alive = m_characteristic;
    auto phone = m_scenario->subscribe(phonePath);
    m_scenario->set(phonePath, "Connected"_qs, false);
    QElapsedTimer sinceDisconnection;
    sinceDisconnection.start();
    m_scenario->set(phonePath, "Connected"_qs, true);
    QTest::qWait(500);
    phone.reset();
    EVENTUALLY_VERIFY(!m_characteristic->notifying());
    m_scenario->set(tabletPath, "Connected"_qs, false);
    // The phone's own disconnection is then too long ago to be the reason. The tablet's must not be, so that
    // no time is to be lost.
    QTest::qWait(int(qMax<qint64>(0, 1001 - sinceDisconnection.elapsed())));
    QObject::connect(m_characteristic, &Characteristic::subscribed, this,
                     [this] { delete m_characteristic; });
    const auto third = m_scenario->subscribe("/org/bluez/hci0/dev_00_AA_01_01_00_03"_qs);
    EVENTUALLY_VERIFY(!alive);
}

void tst_socket_lifetimes::aHandlerMayDeleteTheCharacteristic()
{
    const QPointer<Characteristic> alive = m_characteristic;
    m_characteristic->setWriteHandler([this](const plim::WriteRequest& request) {
        delete m_characteristic;
        request.accept();
    });
    const auto writer = m_scenario->socket("AcquireWrite"_qs);
    writer->write("one");
    writer->write("two");
    EVENTUALLY_VERIFY(!alive);
}

void tst_socket_lifetimes::aDeletedCharacteristicClosesItsSockets()
{
    const auto phone = m_scenario->subscribe();
    const auto writer = m_scenario->socket("AcquireWrite"_qs);
    m_characteristic->notify("last");
    delete m_characteristic;
    QCOMPARE(phone->read(), QByteArray("last"));
    QVERIFY(phone->isHungUp());
    QVERIFY(writer->isHungUp());
}

void tst_socket_lifetimes::aSocketMayBeClosedBeforeItIsUsed()
{
    for (int i = 0; i < 20; ++i) {
        m_scenario->subscribe().reset();
        m_scenario->socket("AcquireWrite"_qs).reset();
        m_characteristic->notify("one");
        m_characteristic->notify(Central(phonePath), "two");
    }
    EVENTUALLY_VERIFY(!m_characteristic->notifying());
    QCOMPARE(m_characteristic->subscribers(), QList<Central>());
    EVENTUALLY_VERIFY(!m_characteristic->property("WriteAcquired").toBool());
}

void tst_socket_lifetimes::aSocketMayBeShutDownHalf_data()
{
    QTest::addColumn<int>("how");
    QTest::newRow("what BlueZ reads") << int(SHUT_RD);
    QTest::newRow("what BlueZ writes") << int(SHUT_WR);
    QTest::newRow("both") << int(SHUT_RDWR);
}

void tst_socket_lifetimes::aSocketMayBeShutDownHalf()
{
    QFETCH(int, how);
    const auto phone = m_scenario->subscribe();
    ::shutdown(phone->descriptor(), how);
    if (how == SHUT_RD) {
        QVERIFY(m_characteristic->notify("nobody reads it"));
        phone->close();
    }
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>());
    QVERIFY(!m_characteristic->notifying());
}

void tst_socket_lifetimes::aHandlerMayRunAnEventLoop()
{
    QByteArrayList values;
    m_characteristic->setWriteHandler([&](const plim::WriteRequest& request) {
        values << request.value();
        if (values.size() == 1) {
            QTest::qWait(20);
        }
        request.accept();
    });
    const auto writer = m_scenario->socket("AcquireWrite"_qs);
    writer->write("one");
    writer->write("two");
    EVENTUALLY_COMPARE(values, (QByteArrayList{"one", "two"}));
}

void tst_socket_lifetimes::theLastValueOfAClosedSocketIsHandled()
{
    QByteArrayList values;
    m_characteristic->setWriteHandler([&](const plim::WriteRequest& request) { values << request.value(); });
    auto writer = m_scenario->socket("AcquireWrite"_qs);
    for (int i = 0; i < 100; ++i) {
        QVERIFY(writer->write(QByteArray::number(i)));
    }
    writer.reset();
    EVENTUALLY_COMPARE(values.size(), 100);
    QCOMPARE(values.last(), QByteArray("99"));
}

QTEST_GUILESS_MAIN(tst_socket_lifetimes)
#include "tst_socket_lifetimes.moc"
