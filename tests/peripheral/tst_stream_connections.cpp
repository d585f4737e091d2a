#include "StreamScenario.h"

#include <QTextStream>

using plim::Central;
using plim::Stream;

/** When a serial stream is open, for whom, and how it ends. */
class tst_stream_connections : public StreamScenario
{
    Q_OBJECT

private slots:
    void cleanup() { end(); }
    void itIsOpenWhileACentralIsSubscribed();
    void aSecondCentralIsServedAfterTheFirst();
    void writesWithoutASubscriptionAreRejected();
    void aLostLinkTellsWhatWasNotTransferred();
    void whatWasReceivedCanBeReadAtTheEnd();
    void whatIsFlushedAtTheEndCountsAsUnsent();
    void aBondedCentralIsServedAgainWhenItReturns();
    void closeEndsTheConnection();
    void deletedAttributesEndTheConnection();
    void aDeletedStreamRejectsWrites();
    void waitingEndsWithTheConnection();
    void slotsMayDeleteTheStream_data();
    void slotsMayDeleteTheStream();
};

void tst_stream_connections::itIsOpenWhileACentralIsSubscribed()
{
    begin();
    QSignalSpy connected(m_stream.get(), &Stream::connected);
    QSignalSpy disconnected(m_stream.get(), &Stream::disconnected);
    QSignalSpy finished(m_stream.get(), &Stream::readChannelFinished);
    QVERIFY(m_stream->isSequential());
    QVERIFY(!m_stream->isOpen() && m_stream->central().isNull());
    QVERIFY(!m_stream->open(QIODevice::ReadWrite) && !m_stream->isOpen());
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    QCOMPARE(m_stream->central(), Central(phone.device()));
    QVERIFY(m_stream->isReadable() && m_stream->isWritable());
    QCOMPARE(connected.size(), 1);
    QCOMPARE(connected.first().first().value<Central>(), Central(phone.device()));
    QVERIFY(!m_stream->open(QIODevice::ReadWrite) && m_stream->isOpen());

    phone.unsubscribe(m_tx);
    QVERIFY(!m_stream->isOpen() && m_stream->central().isNull());
    QCOMPARE(finished.size(), 1);
    QCOMPARE(disconnected.size(), 1);
    QCOMPARE(disconnected.first().at(0).value<Central>(), Central(phone.device()));
    QCOMPARE(disconnected.first().at(1).toLongLong(), 0);
    QCOMPARE(disconnected.first().at(2).toLongLong(), 0);
    phone.subscribe(m_tx);
    QVERIFY(m_stream->isOpen());
}

void tst_stream_connections::aSecondCentralIsServedAfterTheFirst()
{
    begin(acknowledged());
    PlimBleTest::Phone phone;
    PlimBleTest::Phone tablet("00:AA:01:01:00:03");
    QSignalSpy rejected(m_stream.get(), &Stream::rejected);
    phone.subscribe(m_tx);
    tablet.subscribe(m_tx);
    QCOMPARE(m_stream->central(), Central(phone.device()));
    tablet.write(m_rx, "me");
    QCOMPARE(tablet.error(), "0x82 Application Error");
    QCOMPARE(rejected.size(), 1);
    QCOMPARE(rejected.first().at(0).value<Central>(), Central(tablet.device()));
    QCOMPARE(rejected.first().at(1).toLongLong(), 2);
    QCOMPARE(m_stream->rejectedBytes(), 2);
    QCOMPARE(m_stream->bytesAvailable(), 0);

    QSignalSpy connected(m_stream.get(), &Stream::connected);
    // Over the bus, nobody says that one of two has unsubscribed; but that it has gone, yes.
    phone.disconnect();
    EVENTUALLY_COMPARE(m_stream->central(), Central(tablet.device()));
    QCOMPARE(connected.size(), 1);
    tablet.write(m_rx, "me");
    QCOMPARE(tablet.error(), "");
    QCOMPARE(m_stream->readAll(), QByteArray("me"));
    m_stream->write("you");
    EVENTUALLY_COMPARE(received(tablet), QByteArray("you"));
    phone.connect();
    QCOMPARE(received(phone), QByteArray());
}

void tst_stream_connections::writesWithoutASubscriptionAreRejected()
{
    begin(acknowledged());
    QSignalSpy rejected(m_stream.get(), &Stream::rejected);
    PlimBleTest::Phone phone;
    phone.write(m_rx, "early");
    QCOMPARE(phone.error(), "0x82 Application Error");
    QCOMPARE(rejected.size(), 1);
    phone.subscribe(m_tx);
    QCOMPARE(m_stream->bytesAvailable(), 0);
    phone.write(m_rx, "now");
    QCOMPARE(m_stream->readAll(), QByteArray("now"));
}

void tst_stream_connections::aLostLinkTellsWhatWasNotTransferred()
{
    begin();
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    write(phone, "nobody reads this");
    QSignalSpy disconnected(m_stream.get(), &Stream::disconnected);
    qint64 written = 0;
    connect(m_stream.get(), &Stream::bytesWritten, this, [&](qint64 bytes) { written += bytes; });
    // Far more than the daemon takes until it hears the phone.
    m_stream->setWriteBufferSize(1 << 20);
    const QByteArray bytes = pattern(1 << 20);
    QCOMPARE(m_stream->write(bytes), bytes.size());
    phone.disconnect();
    EVENTUALLY_COMPARE(disconnected.size(), 1);
    const qint64 unsent = disconnected.first().at(1).toLongLong();
    QVERIFY(unsent > 0);
    QCOMPARE(written + unsent, qint64(bytes.size()));
    QCOMPARE(disconnected.first().at(2).toLongLong(), 17);
    QVERIFY(bytes.startsWith(received(phone))); // perhaps less than the daemon had taken
    QCOMPARE(m_stream->bytesToWrite(), 0);
    QCOMPARE(m_stream->bytesAvailable(), 0);

    // Nothing of it reaches the next connection.
    phone.connect();
    const auto before = phone.notifications(m_tx).size();
    phone.subscribe(m_tx);
    m_stream->write("new");
    EVENTUALLY_COMPARE(phone.notifications(m_tx).mid(before), QList<QByteArray>{"new"});
    write(phone, "fresh");
    QCOMPARE(m_stream->readAll(), QByteArray("fresh"));
}

void tst_stream_connections::whatWasReceivedCanBeReadAtTheEnd()
{
    begin();
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    write(phone, "last words");
    QByteArray last;
    connect(m_stream.get(), &Stream::readChannelFinished, this, [&] { last = m_stream->read(4); });
    QSignalSpy disconnected(m_stream.get(), &Stream::disconnected);
    phone.unsubscribe(m_tx);
    QCOMPARE(last, QByteArray("last"));
    QCOMPARE(disconnected.size(), 1);
    QCOMPARE(disconnected.first().at(2).toLongLong(), 6);
}

void tst_stream_connections::whatIsFlushedAtTheEndCountsAsUnsent()
{
    begin();
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    QTextStream text(m_stream.get());
    text << "not flushed";
    QSignalSpy disconnected(m_stream.get(), &Stream::disconnected);
    phone.unsubscribe(m_tx); // QTextStream flushes in aboutToClose()
    QCOMPARE(disconnected.size(), 1);
    QCOMPARE(disconnected.first().at(1).toLongLong(), 11);
}

void tst_stream_connections::aBondedCentralIsServedAgainWhenItReturns()
{
    begin();
    PlimBleTest::Phone phone;
    phone.protect("encrypted");
    phone.subscribe(m_tx);
    phone.disconnect();
    EVENTUALLY_VERIFY(!m_stream->isOpen());
    phone.connect();
    EVENTUALLY_COMPARE(m_stream->central(), Central(phone.device()));
    m_stream->write("welcome back");
    EVENTUALLY_COMPARE(received(phone), QByteArray("welcome back"));
}

void tst_stream_connections::closeEndsTheConnection()
{
    begin();
    PlimBleTest::Phone phone;
    PlimBleTest::Phone tablet("00:AA:01:01:00:03");
    phone.subscribe(m_tx);
    m_stream->write("never sent");
    QSignalSpy disconnected(m_stream.get(), &Stream::disconnected);
    connect(m_stream.get(), &Stream::readChannelFinished, m_stream.get(), &Stream::close); // does nothing
    m_stream->close();
    QVERIFY(!m_stream->isOpen());
    QCOMPARE(disconnected.size(), 1);
    QCOMPARE(disconnected.first().at(1).toLongLong(), 10);
    m_stream->close();
    QCOMPARE(disconnected.size(), 1);
    tablet.subscribe(m_tx);
    QCOMPARE(m_stream->central(), Central(tablet.device()));
    m_stream->close();
    QVERIFY(!m_stream->isOpen());
    phone.unsubscribe(m_tx);
    tablet.unsubscribe(m_tx);
    phone.subscribe(m_tx);
    QCOMPARE(m_stream->central(), Central(phone.device()));
    QCOMPARE(received(phone), QByteArray());
}

void tst_stream_connections::deletedAttributesEndTheConnection()
{
    begin();
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    m_stream->write("never sent");
    QSignalSpy disconnected(m_stream.get(), &Stream::disconnected);
    delete m_stream->tx();
    QVERIFY(!m_stream->isOpen() && !m_stream->tx());
    QCOMPARE(disconnected.size(), 1);
    QCOMPARE(disconnected.first().at(1).toLongLong(), 10);
    m_device.reset();
    QVERIFY(!m_stream->rx());
}

void tst_stream_connections::aDeletedStreamRejectsWrites()
{
    begin(acknowledged());
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    m_stream.reset();
    phone.write(m_rx, "hello?");
    QCOMPARE(phone.error(), "0x82 Application Error");
}

void tst_stream_connections::waitingEndsWithTheConnection()
{
    begin();
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    QTimer::singleShot(0, this, [&] { phone.unsubscribe(m_tx); });
    QVERIFY(!m_stream->waitForReadyRead(-1));
    phone.subscribe(m_tx);
    PlimBleTest::Phone tablet("00:AA:01:01:00:03");
    tablet.subscribe(m_tx);
    // The next one's bytes are not those that were waited for.
    QTimer::singleShot(0, this, [&] {
        m_stream->close();
        tablet.write(m_rx, "mine");
    });
    QVERIFY(!m_stream->waitForReadyRead(-1));
    QCOMPARE(m_stream->central(), Central(tablet.device()));
    QTimer::singleShot(0, this, [&] { m_stream.reset(); });
    QVERIFY(!m_stream->waitForReadyRead(-1));
}

void tst_stream_connections::slotsMayDeleteTheStream_data()
{
    QTest::addColumn<QByteArray>("name");
    for (const char* name : {"connected", "readyRead", "bytesWritten", "rejected", "readChannelFinished",
                             "aboutToClose", "disconnected"}) {
        QTest::newRow(name) << QByteArray(name);
    }
}

void tst_stream_connections::slotsMayDeleteTheStream()
{
    QFETCH(QByteArray, name);
    begin();
    const auto end = [this] { m_stream.reset(); };
    Stream* stream = m_stream.get();
    const QMap<QByteArray, std::function<void()>> connections{
        {"connected", [&] { connect(stream, &Stream::connected, this, end); }},
        {"readyRead", [&] { connect(stream, &Stream::readyRead, this, end); }},
        {"bytesWritten", [&] { connect(stream, &Stream::bytesWritten, this, end); }},
        {"rejected", [&] { connect(stream, &Stream::rejected, this, end); }},
        {"readChannelFinished", [&] { connect(stream, &Stream::readChannelFinished, this, end); }},
        {"aboutToClose", [&] { connect(stream, &Stream::aboutToClose, this, end); }},
        {"disconnected", [&] { connect(stream, &Stream::disconnected, this, end); }},
    };
    connections.value(name)();
    PlimBleTest::Phone phone;
    PlimBleTest::Phone tablet("00:AA:01:01:00:03");
    tablet.write(m_rx, "rejected");
    phone.subscribe(m_tx);
    if (m_stream) {
        m_stream->write("bytes");
        m_stream->waitForBytesWritten(10000);
    }
    phone.write(m_rx, "bytes");
    phone.unsubscribe(m_tx);
    EVENTUALLY_VERIFY(!m_stream);
    phone.write(m_rx, "nobody"); // the program lives
}

QTEST_GUILESS_MAIN(tst_stream_connections)
#include "tst_stream_connections.moc"
