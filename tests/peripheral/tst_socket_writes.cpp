#include "LogCapture.h"
#include "SocketScenario.h"

#include <QSignalSpy>

using plim::Access;
using plim::Central;
using plim::Characteristic;
using plim::WriteRequest;

/** Writes that arrive through a socket, with the test as BlueZ. */
class tst_socket_writes : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_scenario.reset(); }
    void aWriteIsStoredAsInTheBaseClass();
    void aWriteIsARequestThatIsAcknowledged();
    void aRejectedWriteKeepsTheValue();
    void anEmptyWriteIsNoHangUp();
    void aLongWriteIsDropped();
    void writesKeepTheirOrder();
    void aLateAnswerStoresTheValue();
    void before569TheCentralIsUnknown();
    void aHangUpLeavesTheValue();
    void aDeclinedSocketLetsBluezUseTheBus();

private:
    std::unique_ptr<BluezEnd> writer(const QString& device = phonePath)
    {
        return m_scenario->socket("AcquireWrite"_qs, device);
    }

    std::unique_ptr<SocketScenario> m_scenario;
    Characteristic* m_characteristic = nullptr;
};

void tst_socket_writes::init()
{
    const bool isOld = QByteArray(QTest::currentTestFunction()).startsWith("before569");
    m_scenario = std::make_unique<SocketScenario>(Access().read().writeWithoutResponse().notify(),
                                                  isOld ? "0542"_qs : "054C"_qs);
    m_characteristic = m_scenario->characteristic;
    QVERIFY(m_scenario->ready());
}

void tst_socket_writes::aWriteIsStoredAsInTheBaseClass()
{
    QSignalSpy changed(m_characteristic, &GattCharacteristic::valueChanged);
    const auto subscriber = m_scenario->subscribe(tabletPath);
    const auto phone = writer();
    QVERIFY(phone && phone->write("one"));
    EVENTUALLY_COMPARE(changed.size(), 1);
    QCOMPARE(m_characteristic->value(), QByteArray("one"));
    QCOMPARE(subscriber->readAll(), QByteArrayList{"one"});
}

void tst_socket_writes::aWriteIsARequestThatIsAcknowledged()
{
    QList<WriteRequest> requests;
    m_characteristic->setWriteHandler([&](const WriteRequest& request) { requests << request; });
    const QDBusMessage answer = m_scenario->acquire("AcquireWrite"_qs, tabletPath, 185);
    QCOMPARE(answer.signature(), "hq"_qs);
    BluezEnd tablet(answer.arguments().at(0).value<QDBusUnixFileDescriptor>());
    QVERIFY(tablet.write("one"));
    EVENTUALLY_COMPARE(requests.size(), 1);
    const WriteRequest& request = requests.first();
    QCOMPARE(request.central(), Central(tabletPath));
    QCOMPARE(request.value(), QByteArray("one"));
    QCOMPARE(request.offset(), 0);
    QCOMPARE(request.mtu(), 185);
    QCOMPARE(request.link(), "LE"_qs);
    QVERIFY(request.isAcknowledged() && !request.isAnswered());
    request.accept();
    QVERIFY(request.isAnswered());
    QCOMPARE(m_characteristic->value(), QByteArray("one"));
    QCOMPARE(m_characteristic->maximumLength(Central(tabletPath)), 182);
}

void tst_socket_writes::aRejectedWriteKeepsTheValue()
{
    m_characteristic->setValue("kept");
    int calls = 0;
    m_characteristic->setWriteHandler([&](const WriteRequest& request) {
        ++calls;
        request.reject(plim::AttError::WriteNotPermitted);
    });
    const auto phone = writer();
    QVERIFY(phone->write("one"));
    EVENTUALLY_COMPARE(calls, 1);
    QCOMPARE(m_characteristic->value(), QByteArray("kept"));
}

void tst_socket_writes::anEmptyWriteIsNoHangUp()
{
    QByteArrayList values;
    m_characteristic->setWriteHandler([&](const WriteRequest& request) { values << request.value(); });
    auto phone = writer();
    for (const QByteArray& value : {QByteArray(""), QByteArray("one"), QByteArray("")}) {
        QVERIFY(phone->write(value));
    }
    phone.reset(); // behind the last empty one
    EVENTUALLY_COMPARE(values, (QByteArrayList{"", "one", ""}));
}

void tst_socket_writes::aLongWriteIsDropped()
{
    QByteArrayList values;
    m_characteristic->setWriteHandler([&](const WriteRequest& request) { values << request.value(); });
    const auto phone = writer();
    const LogCapture log(log4cplus::WARN_LOG_LEVEL);
    QVERIFY(phone->write(QByteArray(512, 'a')));
    QVERIFY(phone->write(QByteArray(513, 'b')));
    QVERIFY(phone->write("c"));
    EVENTUALLY_COMPARE(values, (QByteArrayList{QByteArray(512, 'a'), "c"}));
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL).filter("more than 512 bytes"_qs),
             QStringList("Write of more than 512 bytes to /app/aaaa/c0 dropped"_qs));
}

void tst_socket_writes::writesKeepTheirOrder()
{
    QByteArrayList values;
    m_characteristic->setWriteHandler([&](const WriteRequest& request) {
        values << request.value();
        request.accept();
    });
    const auto phone = writer();
    QByteArrayList sent;
    for (int i = 0; i < 200; ++i) {
        sent << QByteArray::number(i);
        QVERIFY(phone->write(sent.last()));
    }
    EVENTUALLY_COMPARE(values.size(), sent.size());
    QCOMPARE(values, sent);
}

void tst_socket_writes::aLateAnswerStoresTheValue()
{
    QList<WriteRequest> requests;
    m_characteristic->setWriteHandler([&](const WriteRequest& request) { requests << request; });
    auto phone = writer();
    QVERIFY(phone->write("one"));
    EVENTUALLY_COMPARE(requests.size(), 1);
    phone.reset();
    QTest::qWait(10);
    requests.takeFirst().accept();
    QCOMPARE(m_characteristic->value(), QByteArray("one"));
}

void tst_socket_writes::before569TheCentralIsUnknown()
{
    QList<WriteRequest> requests;
    m_characteristic->setWriteHandler([&](const WriteRequest& request) { requests << request; });
    const auto all = writer();
    QVERIFY(all->write("one"));
    EVENTUALLY_COMPARE(requests.size(), 1);
    QVERIFY(requests.first().central().isNull());
    QVERIFY(requests.first().isAcknowledged());
}

void tst_socket_writes::aHangUpLeavesTheValue()
{
    auto phone = writer();
    QVERIFY(phone->write("one"));
    phone.reset();
    EVENTUALLY_COMPARE(m_characteristic->value(), QByteArray("one"));
    EVENTUALLY_VERIFY(!m_characteristic->property("WriteAcquired").toBool());
    phone = writer();
    QVERIFY(phone && phone->write("two"));
    EVENTUALLY_COMPARE(m_characteristic->value(), QByteArray("two"));
}

void tst_socket_writes::aDeclinedSocketLetsBluezUseTheBus()
{
    m_characteristic->setTransport(Characteristic::Transport::Bus);
    const QDBusMessage answer = m_scenario->acquire("AcquireWrite"_qs);
    QCOMPARE(answer.errorName(), "org.bluez.Error.Failed"_qs);
    QCOMPARE(answer.errorMessage(), "0x0e"_qs);
}

QTEST_GUILESS_MAIN(tst_socket_writes)
#include "tst_socket_writes.moc"
