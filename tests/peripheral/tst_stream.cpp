#include "StreamScenario.h"

#include <QDataStream>
#include <QTextStream>

using plim::Access;
using plim::Central;
using plim::Stream;
using plim::StreamService;

Q_DECLARE_METATYPE(plim::Characteristic::Transport)

/** Bytes of a serial stream, as phones of the stand-in daemon send and get them. */
class tst_stream : public StreamScenario
{
    Q_OBJECT

private slots:
    void cleanup() { end(); }
    void writesOfTheCentralAreRead();
    void linesAreReadWhenTheyAreComplete();
    void textReachesTheCentral();
    void bytesAreSentInPiecesOfTheLink();
    void whatIsWrittenAtOnceIsSentWhenBluezListens();
    void aMegabyteIsTheSameAtBothEnds_data();
    void aMegabyteIsTheSameAtBothEnds();
    void aPhoneThatDoesNotReadHoldsTheStreamUp();
    void transactionsKeepWhatIsIncomplete();
    void aFullReadBufferRejectsWholeWrites();
    void aFullWriteBufferTakesWhatFits();
    void indicationsWaitForConfirmations();
    void itWaitsForBytes();
    void aSlotThatWaitsDoesNotMissBytes();
};

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
    EVENTUALLY_COMPARE(m_stream->bytesAvailable(), 14);
    QCOMPARE(readyRead.size(), 3);
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
    write(phone, "led");
    QVERIFY(!m_stream->canReadLine());
    write(phone, " on\nled off\nup");
    QVERIFY(m_stream->canReadLine());
    QCOMPARE(m_stream->readLine(), QByteArray("led on\n"));
    QCOMPARE(m_stream->readLine(3), QByteArray("le"));
    QCOMPARE(m_stream->readLine(), QByteArray("d off\n"));
    QVERIFY(!m_stream->canReadLine());
    QCOMPARE(m_stream->readLine(), QByteArray("up"));
    write(phone, "time\n");
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

void tst_stream::aMegabyteIsTheSameAtBothEnds_data()
{
    using Transport = plim::Characteristic::Transport;
    QTest::addColumn<Transport>("transport");
    QTest::newRow("over the bus") << Transport::Bus;
    QTest::newRow("through a socket to the central") << Transport::Sockets;
    QTest::newRow("through sockets both ways") << Transport::SocketsBothWays;
}

void tst_stream::aMegabyteIsTheSameAtBothEnds()
{
    QFETCH(plim::Characteristic::Transport, transport);
    StreamService service;
    service.transport = transport;
    begin(service);
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
    EVENTUALLY_VERIFY(received(phone) == bytes);
}

void tst_stream::aPhoneThatDoesNotReadHoldsTheStreamUp()
{
    begin(StreamService());
    PlimBleTest::Phone phone;
    phone.subscribe(m_tx);
    phone.takeNotifications(false);
    const QByteArray bytes = pattern(500000);
    qint64 taken = 0;
    const auto fill = [&] { taken += m_stream->write(bytes.constData() + taken, bytes.size() - taken); };
    connect(m_stream.get(), &Stream::bytesWritten, this, fill);
    fill();
    EVENTUALLY_VERIFY(taken > 65536 && m_stream->bytesToWrite() == 65536);
    phone.read(m_tx);
    QVERIFY(taken < bytes.size());
    QCOMPARE(received(phone), QByteArray());
    phone.takeNotifications(true);
    EVENTUALLY_VERIFY(received(phone) == bytes);
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
    write(phone, message.left(10));
    QCOMPARE(read(), QString());
    QCOMPARE(m_stream->bytesAvailable(), 10);
    write(phone, message.mid(10) + 'x');
    QCOMPARE(read(), "a message");
    QCOMPARE(m_stream->readAll(), QByteArray("x"));
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

void tst_stream::indicationsWaitForConfirmations()
{
    StreamService service = overTheBus();
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

QTEST_GUILESS_MAIN(tst_stream)
#include "tst_stream.moc"
