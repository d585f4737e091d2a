#include "SocketScenario.h"

#include <QEventLoop>
#include <QSignalSpy>
#include <QThread>

using plim::Central;
using plim::Stream;

/** From one connection of a stream to the next, over the bus and with the test as BlueZ. */
class tst_stream_turns : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void anAnswerForTheFormerCentralIsNoneForTheNext();
    void aCentralThatConnectsWithoutASubscriptionIsNotServed();
    void aLinkMayEndAndComeBackInOnesSlot();
    void aTransactionEndsWithTheConnection();
    void aSlotMayEndTheStreamThatBegins();
    void theNextSlotKnowsTheCentralOfAClosedStream();

private:
    void subscribe(const QString& device)
    {
        const QString tx = m_stream->tx()->dbusPath();
        m_bluez->send(tx, "AcquireNotify"_qs, {FakeBluez::options(device, "LE"_qs, 247)});
        m_bluez->send(tx, "StartNotify"_qs);
        EVENTUALLY_VERIFY(m_stream->tx()->subscribers().contains(Central(device)));
    }
    void setConnected(const QString& device, bool isConnected)
    {
        m_bluez->change(device, "org.bluez.Device1"_qs, {{"Connected"_qs, isConnected}});
    }

    std::unique_ptr<FakeBluez> m_bluez;
    std::unique_ptr<GattApplication> m_app;
    std::unique_ptr<Stream> m_stream;
};

void tst_stream_turns::init()
{
    m_bluez = std::make_unique<FakeBluez>("bluez"_qs);
    for (const QString& device : {phonePath, tabletPath}) {
        m_bluez->objects[QDBusObjectPath(device)] = {{"org.bluez.Device1"_qs, {{"Connected"_qs, true}}}};
    }
    QVERIFY(m_bluez->appear());
    m_app = std::make_unique<GattApplication>(nullptr, "/app"_qs, "org.example.Peripheral"_qs);
    plim::StreamService service;
    service.transport = plim::Characteristic::Transport::Bus;
    m_stream = std::make_unique<Stream>(m_app.get(), service);
    EVENTUALLY_COMPARE(m_bluez->descriptions, 1);
}

void tst_stream_turns::cleanup()
{
    m_stream.reset();
    m_app.reset();
    m_bluez.reset();
}

void tst_stream_turns::anAnswerForTheFormerCentralIsNoneForTheNext()
{
    subscribe(phonePath);
    subscribe(tabletPath);
    QCOMPARE(m_stream->central(), Central(phonePath));
    QSignalSpy written(m_stream.get(), &Stream::bytesWritten);
    QEventLoop untilSent;
    QObject::connect(m_stream->tx(), &GattCharacteristic::PropertiesChanged, &untilSent, &QEventLoop::quit);
    m_stream->write("for the phone");
    untilSent.exec();
    QCOMPARE(m_stream->tx()->value(), QByteArray("for the phone"));
    QThread::msleep(
        200); // BlueZ has answered that it has the value; the event loop has not yet delivered that
    m_stream->close();
    QCOMPARE(m_stream->central(), Central(tabletPath));
    QTest::qWait(100);
    QCOMPARE(written.size(), 0);
    m_stream->write("for the tablet");
    EVENTUALLY_COMPARE(written.size(), 1);
    QCOMPARE(written.first().first().toLongLong(), qint64(qstrlen("for the tablet")));
    QCOMPARE(m_stream->tx()->value(), QByteArray("for the tablet"));
    QCOMPARE(m_stream->bytesToWrite(), 0);
}

void tst_stream_turns::aCentralThatConnectsWithoutASubscriptionIsNotServed()
{
    setConnected(phonePath, false);
    setConnected(phonePath, true);
    subscribe(tabletPath); // when this has been handled, what was sent before has been, too
    QCOMPARE(m_stream->central(), Central(tabletPath));
}

/** A slot that is called before the stream hears of the end runs an event loop, as a dialog does. */
void tst_stream_turns::aLinkMayEndAndComeBackInOnesSlot()
{
    cleanup();
    // The library's copy of BlueZ's objects ends, too.
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    const plim::Centrals centrals;
    init();
    QTRY_COMPARE(centrals.connected().size(), 2);
    subscribe(phonePath);
    QSignalSpy connected(m_stream.get(), &Stream::connected);
    QSignalSpy disconnected(m_stream.get(), &Stream::disconnected);
    bool hasReturned = false;
    connect(&centrals, &plim::Centrals::centralDisconnected, this, [&] {
        setConnected(phonePath, true);
        hasReturned = QTest::qWaitFor([&] { return centrals.connected().size() == 2; }, 10000);
    });
    setConnected(phonePath, false);
    QTRY_VERIFY(hasReturned);
    QTRY_COMPARE(disconnected.size(), 1);
    QCOMPARE(connected.size(), 1);
    QCOMPARE(m_stream->central(), Central(phonePath));
}

void tst_stream_turns::aTransactionEndsWithTheConnection()
{
    subscribe(phonePath);
    m_bluez->send(m_stream->rx()->dbusPath(), "WriteValue"_qs,
                  {QByteArray("ab"), FakeBluez::options(phonePath, "LE"_qs, 247)});
    EVENTUALLY_COMPARE(m_stream->bytesAvailable(), 2);
    m_stream->startTransaction();
    QCOMPARE(m_stream->read(1), QByteArray("a"));
    QSignalSpy disconnected(m_stream.get(), &Stream::disconnected);
    m_stream->close();
    QCOMPARE(disconnected.size(), 1);
    QCOMPARE(disconnected.first().at(2).toLongLong(), 1);
    QVERIFY(!m_stream->isTransactionStarted());
    QCOMPARE(m_stream->bytesAvailable(), 0);
}

void tst_stream_turns::aSlotMayEndTheStreamThatBegins()
{
    QString name;
    connect(m_stream.get(), &Stream::connected, this, [&](const Central& central) {
        m_stream.reset();
        name = central.path();
    });
    m_bluez->send(m_stream->tx()->dbusPath(), "AcquireNotify"_qs,
                  {FakeBluez::options(phonePath, "LE"_qs, 247)});
    QTRY_VERIFY(!m_stream);
    QCOMPARE(name, phonePath);
}

void tst_stream_turns::theNextSlotKnowsTheCentralOfAClosedStream()
{
    QString name;
    connect(m_stream.get(), &Stream::connected, this, [this] { m_stream->close(); });
    connect(m_stream.get(), &Stream::connected, this, [&](const Central& central) { name = central.path(); });
    subscribe(phonePath);
    QCOMPARE(name, phonePath);
}

QTEST_GUILESS_MAIN(tst_stream_turns)
#include "tst_stream_turns.moc"
