#include "LogCapture.h"
#include "SocketScenario.h"

#include <QSignalSpy>

using plim::Access;
using plim::Central;
using plim::Characteristic;

/** What becomes of values that a central does not read, with the test as BlueZ 5.82. */
class tst_sockets_full : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_scenario.reset(); }
    void aFullSocketIsTold();
    void aSlowCentralHoldsNobodyUp();
    void afterAReadyToWriteNothingIsMissing();
    void untilReadyToWriteNothingIsSent();
    void oneCentralAloneIsToldOfARoomThatIsMissing();
    void whatIsNotToldIsLogged();
    void theUnreadBytesAreCountedExactly_data();
    void theUnreadBytesAreCountedExactly();
    void aHangUpOfAFullSocketEndsIt();

private:
    /** Notifies until somebody misses a value. @return what was sent before */
    QByteArrayList fill(int length = 20)
    {
        QByteArrayList sent;
        for (int i = 0; i < 10000; ++i) {
            const QByteArray value = QByteArray::number(i).rightJustified(length, '.');
            if (!m_characteristic->notify(value)) {
                return sent;
            }
            sent << value;
        }
        return {};
    }

    std::unique_ptr<SocketScenario> m_scenario;
    Characteristic* m_characteristic = nullptr;
    const Central m_phone{phonePath};
    const Central m_tablet{tabletPath};
};

void tst_sockets_full::init()
{
    m_scenario = std::make_unique<SocketScenario>(Access().read().notify());
    m_characteristic = m_scenario->characteristic;
    QVERIFY(m_scenario->ready());
}

void tst_sockets_full::aFullSocketIsTold()
{
    const auto phone = m_scenario->subscribe();
    const QByteArrayList sent = fill();
    QVERIFY(sent.size() > 50);
    QCOMPARE(m_characteristic->missed(), QList<Central>{m_phone});
    QCOMPARE(m_characteristic->bytesToWrite(m_phone), qint64(20) * sent.size());
    QVERIFY(!m_characteristic->notify("more"));
    QCOMPARE(m_characteristic->value(), QByteArray("more"));
    QCOMPARE(phone->readAll(), sent);
}

void tst_sockets_full::aSlowCentralHoldsNobodyUp()
{
    const auto phone = m_scenario->subscribe(phonePath);
    const auto tablet = m_scenario->subscribe(tabletPath);
    QByteArrayList sent;
    QByteArrayList read;
    for (int i = 0; i < 2000; ++i) {
        sent << QByteArray::number(i);
        m_characteristic->notify(sent.last());
        read << tablet->readAll();
    }
    QCOMPARE(read, sent);
    QCOMPARE(m_characteristic->missed(), QList<Central>{m_phone});
    QVERIFY(phone->readAll().size() < sent.size());
}

void tst_sockets_full::afterAReadyToWriteNothingIsMissing()
{
    const auto phone = m_scenario->subscribe();
    QByteArrayList sent;
    int next = 0;
    const auto send = [&] {
        while (next < 5000 && m_characteristic->notify(QByteArray::number(next))) {
            sent << QByteArray::number(next++);
        }
    };
    QSignalSpy ready(m_characteristic, &Characteristic::readyToWrite);
    QObject::connect(m_characteristic, &Characteristic::readyToWrite, this, send);
    send();
    QByteArrayList read;
    QVERIFY(QTest::qWaitFor(
        [&] {
            read << phone->readAll();
            return !read.isEmpty() && read.last() == "4999";
        },
        10000));
    QCOMPARE(read, sent);
    QVERIFY(ready.size() > 1);
    QCOMPARE(ready.first().first().value<Central>(), m_phone);
}

void tst_sockets_full::untilReadyToWriteNothingIsSent()
{
    const auto phone = m_scenario->subscribe();
    const QByteArrayList sent = fill();
    QSignalSpy ready(m_characteristic, &Characteristic::readyToWrite);
    QCOMPARE(phone->readAll(), sent);
    QVERIFY(!m_characteristic->notify("too early"));
    EVENTUALLY_COMPARE(ready.size(), 1);
    QVERIFY(m_characteristic->notify("now"));
    QCOMPARE(phone->readAll(), QByteArrayList{"now"});
    QTest::qWait(50); // what is not told again is a matter of time
    QCOMPARE(ready.size(), 1);
}

void tst_sockets_full::oneCentralAloneIsToldOfARoomThatIsMissing()
{
    const auto phone = m_scenario->subscribe(phonePath);
    const auto tablet = m_scenario->subscribe(tabletPath);
    int sent = 0;
    while (m_characteristic->notify(m_phone, "x")) {
        ++sent;
    }
    QVERIFY(m_characteristic->notify(m_tablet, "y"));
    QVERIFY(!m_characteristic->notify("z"));
    QCOMPARE(m_characteristic->missed(), QList<Central>{m_phone});
    QCOMPARE(tablet->readAll(), (QByteArrayList{"y", "z"}));
    QSignalSpy ready(m_characteristic, &Characteristic::readyToWrite);
    QCOMPARE(phone->readAll().size(), sent);
    EVENTUALLY_COMPARE(ready.size(), 1);
}

void tst_sockets_full::whatIsNotToldIsLogged()
{
    const auto phone = m_scenario->subscribe();
    fill();
    const LogCapture log(log4cplus::WARN_LOG_LEVEL);
    m_characteristic->setValue("lost");
    QCOMPARE(m_characteristic->missed(), QList<Central>{m_phone});
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL),
             QStringList("1 centrals have no room for a value of /app/aaaa/c0"_qs));
    m_characteristic->notify("told");
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL).size(), 1);
}

void tst_sockets_full::theUnreadBytesAreCountedExactly_data()
{
    QTest::addColumn<int>("length");
    for (const int length : {1, 20, 100, 182, 244, 300, 512}) {
        QTest::newRow(qPrintable(QString::number(length))) << length;
    }
}

void tst_sockets_full::theUnreadBytesAreCountedExactly()
{
    QFETCH(int, length);
    const auto phone = m_scenario->subscribe();
    QByteArrayList sent;
    for (int i = 0; i < 60; ++i) {
        sent << QByteArray(i % 2 ? length : 7, char('a' + i % 26));
        QVERIFY(m_characteristic->notify(sent.last()));
    }
    while (!sent.isEmpty()) {
        qint64 unread = 0;
        for (const QByteArray& value : qAsConst(sent)) {
            unread += value.size();
        }
        QCOMPARE(m_characteristic->bytesToWrite(m_phone), unread);
        QCOMPARE(phone->read(), sent.takeFirst());
    }
    QCOMPARE(m_characteristic->bytesToWrite(m_phone), 0);
}

void tst_sockets_full::aHangUpOfAFullSocketEndsIt()
{
    auto phone = m_scenario->subscribe();
    fill();
    QSignalSpy ready(m_characteristic, &Characteristic::readyToWrite);
    phone.reset();
    EVENTUALLY_COMPARE(m_characteristic->subscribers(), QList<Central>());
    QCOMPARE(m_characteristic->missed(), QList<Central>());
    QCOMPARE(m_characteristic->bytesToWrite(m_phone), 0);
    QVERIFY(m_characteristic->notify("nobody"));
}

QTEST_GUILESS_MAIN(tst_sockets_full)
#include "tst_sockets_full.moc"
