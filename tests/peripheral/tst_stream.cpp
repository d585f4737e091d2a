#include "Device.h"
#include "StreamPattern.h"

#include <QDataStream>
#include <QTextStream>

using plim::Access;
using plim::Central;
using plim::Stream;
using plim::StreamService;

/** A serial stream, as phones of the stand-in daemon use it. */
class tst_stream : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();
    void itIsOpenWhileACentralIsSubscribed();
    void writesOfTheCentralAreRead();
    void linesAreReadWhenTheyAreComplete();
    void textReachesTheCentral();
    void bytesAreSentInPiecesOfTheLink();
    void whatIsWrittenAtOnceIsSentWhenBluezListens();
    void aMegabyteIsTheSameAtBothEnds();
    void transactionsKeepWhatIsIncomplete();
    void aSecondCentralIsServedAfterTheFirst();
    void writesWithoutASubscriptionAreRejected();
    void aFullReadBufferRejectsWholeWrites();
    void aFullWriteBufferTakesWhatFits();
    void aLostLinkTellsWhatWasNotTransferred();
    void whatWasReceivedCanBeReadAtTheEnd();
    void whatIsFlushedAtTheEndCountsAsUnsent();
    void aBondedCentralIsServedAgainWhenItReturns();
    void closeEndsTheConnection();
    void deletedAttributesEndTheConnection();
    void aDeletedStreamRejectsWrites();
    void indicationsWaitForConfirmations();
    void itWaitsForBytes();
    void waitingEndsWithTheConnection();
    void aSlotThatWaitsDoesNotMissBytes();
    void slotsMayDeleteTheStream_data();
    void slotsMayDeleteTheStream();

private:
    /** Writes that BlueZ answers after the program has. */
    static StreamService acknowledged()
    {
        StreamService service;
        service.rxAccess = Access().write();
        return service;
    }
    void begin(const StreamService& service = StreamService())
    {
        m_ble = std::make_unique<PlimBleTest>();
        m_device = std::make_unique<Device>();
        m_stream = std::make_unique<Stream>(&m_device->app, service);
        m_rx = m_stream->rx()->dbusPath();
        m_tx = m_stream->tx()->dbusPath();
        QVERIFY(m_device->ready(*m_ble));
    }
    QByteArray received(PlimBleTest::Phone& phone) const { return phone.notifications(m_tx).join(); }
    static QByteArray pattern(int size) { return StreamPattern::bytes(0, size); }

    std::unique_ptr<PlimBleTest> m_ble;
    std::unique_ptr<Device> m_device;
    std::unique_ptr<Stream> m_stream;
    QString m_rx;
    QString m_tx;
};

void tst_stream::cleanup()
{
    m_stream.reset();
    m_device.reset();
    m_ble.reset();
}

void tst_stream::itIsOpenWhileACentralIsSubscribed()
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

void tst_stream::writesOfTheCentralAreRead()
{
    begin();
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    QSignalSpy readyRead(m_stream.get(), &Stream::readyRead);
    phone.write(m_rx, "one ");
    phone.writeWithoutResponse(m_rx, "two ");
    phone.write(m_rx, QByteArray());
    phone.write(m_rx, QByteArray("three\0", 6));
    QCOMPARE(readyRead.size(), 3);
    QCOMPARE(m_stream->bytesAvailable(), 14);
    QCOMPARE(m_stream->peek(5), QByteArray("one t"));
    QCOMPARE(m_stream->bytesAvailable(), 14);
    QCOMPARE(m_stream->read(6), QByteArray("one tw"));
    QCOMPARE(m_stream->bytesAvailable(), 8);
    QCOMPARE(m_stream->readAll(), QByteArray("o three\0", 8));
    QCOMPARE(m_stream->read(1), QByteArray());
    QVERIFY(m_stream->isOpen());
    QCOMPARE(m_stream->rejectedBytes(), 0);
}

void tst_stream::linesAreReadWhenTheyAreComplete()
{
    begin();
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    phone.write(m_rx, "led");
    QVERIFY(!m_stream->canReadLine());
    phone.write(m_rx, " on\nled off\nup");
    QVERIFY(m_stream->canReadLine());
    QCOMPARE(m_stream->readLine(), QByteArray("led on\n"));
    QCOMPARE(m_stream->readLine(3), QByteArray("le"));
    QCOMPARE(m_stream->readLine(), QByteArray("d off\n"));
    QVERIFY(!m_stream->canReadLine());
    QCOMPARE(m_stream->readLine(), QByteArray("up"));
    phone.write(m_rx, "time\n");
    m_stream->ungetChar('w');
    QCOMPARE(m_stream->readLine(), QByteArray("wtime\n"));
}

void tst_stream::textReachesTheCentral()
{
    begin();
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    qint64 written = 0;
    connect(m_stream.get(), &Stream::bytesWritten, this, [&](qint64 bytes) { written += bytes; });
    QTextStream text(m_stream.get());
    text << "up for " << 42;
    text.flush();
    text << " s\n";
    text.flush();
    QCOMPARE(m_stream->bytesToWrite(), 12);
    EVENTUALLY_COMPARE(written, 12);
    QCOMPARE(m_stream->bytesToWrite(), 0);
    // What is written without an event loop in between shares a packet.
    EVENTUALLY_COMPARE(phone.notifications(m_tx), QList<QByteArray>{"up for 42 s\n"});
}

void tst_stream::bytesAreSentInPiecesOfTheLink()
{
    begin();
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    const QByteArray bytes = pattern(1300);
    QCOMPARE(m_stream->tx()->maximumLength(Central(phone.device())), 514);
    m_stream->write(bytes);
    EVENTUALLY_COMPARE(received(phone), bytes);
    const QList<QByteArray> pieces = phone.notifications(m_tx);
    QCOMPARE(pieces.size(), 3);
    QCOMPARE(pieces.at(0).size(), 512); // no attribute is longer
    QCOMPARE(pieces.at(1).size(), 512);
}

void tst_stream::whatIsWrittenAtOnceIsSentWhenBluezListens()
{
    begin();
    connect(m_stream.get(), &Stream::connected, this, [this] { m_stream->write("hello\n"); });
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    EVENTUALLY_COMPARE(received(phone), QByteArray("hello\n"));
    EVENTUALLY_COMPARE(m_stream->bytesToWrite(), 0);
}

void tst_stream::aMegabyteIsTheSameAtBothEnds()
{
    begin();
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    const QByteArray bytes = pattern(1 << 20);
    qint64 taken = 0;
    const auto fill = [&] { taken += m_stream->write(bytes.constData() + taken, bytes.size() - taken); };
    connect(m_stream.get(), &Stream::bytesWritten, this, fill);
    QByteArray arrived;
    connect(m_stream.get(), &Stream::readyRead, this, [&] { arrived += m_stream->readAll(); });
    fill();
    for (int at = 0; at < bytes.size(); at += 500) {
        phone.writeWithoutResponse(m_rx, bytes.mid(at, 500));
    }
    EVENTUALLY_COMPARE(arrived.size(), bytes.size());
    QVERIFY(arrived == bytes);
    EVENTUALLY_VERIFY(taken == bytes.size() && m_stream->bytesToWrite() == 0);
    QVERIFY(received(phone) == bytes);
}

void tst_stream::transactionsKeepWhatIsIncomplete()
{
    begin();
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    QByteArray message;
    QDataStream writer(&message, QIODevice::WriteOnly);
    writer << QString("a message");
    const auto read = [this] {
        QDataStream data(m_stream.get());
        QString text;
        data.startTransaction();
        data >> text;
        return data.commitTransaction() ? text : QString();
    };
    phone.write(m_rx, message.left(10));
    QCOMPARE(read(), QString());
    QCOMPARE(m_stream->bytesAvailable(), 10);
    phone.write(m_rx, message.mid(10) + 'x');
    QCOMPARE(read(), "a message");
    QCOMPARE(m_stream->readAll(), QByteArray("x"));
}

void tst_stream::aSecondCentralIsServedAfterTheFirst()
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

void tst_stream::writesWithoutASubscriptionAreRejected()
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

void tst_stream::aFullReadBufferRejectsWholeWrites()
{
    begin(acknowledged());
    m_stream->setReadBufferSize(1);
    QCOMPARE(m_stream->readBufferSize(), 512);
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    QSignalSpy rejected(m_stream.get(), &Stream::rejected);
    phone.write(m_rx, pattern(500));
    phone.write(m_rx, "thirteen byte");
    QCOMPARE(phone.error(), "0x81 Application Error");
    QCOMPARE(rejected.size(), 1);
    QCOMPARE(rejected.first().at(0).value<Central>(), Central(phone.device()));
    QCOMPARE(m_stream->rejectedBytes(), 13);
    phone.write(m_rx, "twelve bytes");
    QCOMPARE(phone.error(), "");
    QCOMPARE(m_stream->read(1), pattern(1));
    phone.write(m_rx, "!");
    QCOMPARE(phone.error(), "");
    QCOMPARE(m_stream->readAll(), pattern(500).mid(1) + "twelve bytes!");
}

void tst_stream::aFullWriteBufferTakesWhatFits()
{
    begin();
    m_stream->setWriteBufferSize(600);
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    const QByteArray bytes = pattern(700);
    QCOMPARE(m_stream->write(bytes), 600);
    QCOMPARE(m_stream->write(bytes), 0);
    QTextStream text(m_stream.get());
    text << "lost";
    text.flush();
    QCOMPARE(text.status(), QTextStream::WriteFailed);
    QVERIFY(m_stream->waitForBytesWritten(10000));
    EVENTUALLY_COMPARE(m_stream->bytesToWrite(), 0);
    QCOMPARE(m_stream->write(bytes.mid(600)), 100);
    EVENTUALLY_COMPARE(received(phone), bytes);
}

void tst_stream::aLostLinkTellsWhatWasNotTransferred()
{
    begin();
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    phone.write(m_rx, "nobody reads this");
    QSignalSpy disconnected(m_stream.get(), &Stream::disconnected);
    qint64 written = 0;
    connect(m_stream.get(), &Stream::bytesWritten, this, [&](qint64 bytes) { written += bytes; });
    const QByteArray bytes = pattern(65536);
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
    phone.write(m_rx, "fresh");
    QCOMPARE(m_stream->readAll(), QByteArray("fresh"));
}

void tst_stream::whatWasReceivedCanBeReadAtTheEnd()
{
    begin();
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    phone.write(m_rx, "last words");
    QByteArray last;
    connect(m_stream.get(), &Stream::readChannelFinished, this, [&] { last = m_stream->read(4); });
    QSignalSpy disconnected(m_stream.get(), &Stream::disconnected);
    phone.unsubscribe(m_tx);
    QCOMPARE(last, QByteArray("last"));
    QCOMPARE(disconnected.size(), 1);
    QCOMPARE(disconnected.first().at(2).toLongLong(), 6);
}

void tst_stream::whatIsFlushedAtTheEndCountsAsUnsent()
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

void tst_stream::aBondedCentralIsServedAgainWhenItReturns()
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

void tst_stream::closeEndsTheConnection()
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

void tst_stream::deletedAttributesEndTheConnection()
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

void tst_stream::aDeletedStreamRejectsWrites()
{
    begin(acknowledged());
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    m_stream.reset();
    phone.write(m_rx, "hello?");
    QCOMPARE(phone.error(), "0x82 Application Error");
}

void tst_stream::indicationsWaitForConfirmations()
{
    StreamService service;
    service.txAccess = Access().indicate();
    begin(service);
    PlimBleTest::Phone phone;
    phone.subscribeToIndications(m_tx);
    phone.confirmIndications(false);
    const QByteArray bytes = pattern(3000);
    m_stream->write(bytes);
    EVENTUALLY_COMPARE(phone.notifications(m_tx).size(), 1);
    phone.read(m_tx); // behind all that was sent so far
    QCOMPARE(phone.notifications(m_tx).size(), 1);
    QCOMPARE(m_stream->bytesToWrite(), 3000);
    QSignalSpy written(m_stream.get(), &Stream::bytesWritten);
    phone.confirmIndications(true);
    EVENTUALLY_COMPARE(m_stream->bytesToWrite(), 0);
    EVENTUALLY_COMPARE(received(phone), bytes);
    QCOMPARE(written.size(), 6); // one for each
}

void tst_stream::itWaitsForBytes()
{
    begin();
    QVERIFY(!m_stream->waitForReadyRead(10) && !m_stream->waitForBytesWritten(10));
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    QVERIFY(!m_stream->waitForReadyRead(10));
    QVERIFY(!m_stream->waitForBytesWritten(-1)); // there is nothing to write
    QTimer::singleShot(0, this, [&] { phone.write(m_rx, "here"); });
    QVERIFY(m_stream->waitForReadyRead(-1));
    QCOMPARE(m_stream->readAll(), QByteArray("here"));
    m_stream->write("there");
    QVERIFY(m_stream->waitForBytesWritten(-1));
    QCOMPARE(m_stream->bytesToWrite(), 0);
}

void tst_stream::waitingEndsWithTheConnection()
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

void tst_stream::aSlotThatWaitsDoesNotMissBytes()
{
    begin();
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    QList<QByteArray> read;
    int depth = 0;
    int deepest = 0;
    connect(m_stream.get(), &Stream::readyRead, this, [&] {
        deepest = qMax(deepest, ++depth);
        read << m_stream->readAll();
        if (read.size() == 1) {
            // Arrives while this slot runs its own event loop, and is left to the next call.
            QTimer::singleShot(0, this, [&] { phone.write(m_rx, "second"); });
            QVERIFY(m_stream->waitForReadyRead(-1));
        }
        --depth;
    });
    phone.write(m_rx, "first");
    EVENTUALLY_COMPARE(read, (QList<QByteArray>{"first", "second"}));
    QCOMPARE(deepest, 1);
}

void tst_stream::slotsMayDeleteTheStream_data()
{
    QTest::addColumn<QByteArray>("name");
    for (const char* name : {"connected", "readyRead", "bytesWritten", "rejected", "readChannelFinished",
                             "aboutToClose", "disconnected"}) {
        QTest::newRow(name) << QByteArray(name);
    }
}

void tst_stream::slotsMayDeleteTheStream()
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

QTEST_GUILESS_MAIN(tst_stream)
#include "tst_stream.moc"
