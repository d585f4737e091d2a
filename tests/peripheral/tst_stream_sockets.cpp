#include "SocketScenario.h"
#include "StreamPattern.h"

#include <QSignalSpy>

using plim::Access;
using plim::Central;
using plim::Stream;

/** What has arrived at BlueZ's end of a socket. */
class Arrived
{
public:
    explicit Arrived(std::unique_ptr<BluezEnd>& end) : m_end(end) {}

    QByteArray bytes()
    {
        m_bytes += m_end->readAll().join();
        return m_bytes;
    }

private:
    std::unique_ptr<BluezEnd>& m_end;
    QByteArray m_bytes;
};

/** A serial stream through sockets, with the test as BlueZ. */
class tst_stream_sockets : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();
    void bytesGoThroughTheSocket();
    void aFullSocketHoldsTheStreamUp();
    void theEndOfTheSocketEndsTheConnection();
    void aWaitingCentralGetsNothing();
    void writesAreReadFromTheSocket();
    void aFullReadBufferHoldsTheCentralUp();
    void whatWasWrittenBeforeTheEndIsReceived();
    void aSlotMayCloseItWhileTheRestIsReceived();
    void whatIsWrittenAfterTheEndIsRejected();
    void before569WritesTakeTheBus();
    void before576AllSubscribersGetTheBytes();
    void writesHaveASocketOnRequestOnly();
    void withTheBusNoSocketIsGiven();

private:
    using Transport = plim::Characteristic::Transport;

    void begin(const QString& version = "0552"_qs, Transport transport = Transport::SocketsBothWays)
    {
        plim::StreamService service;
        service.transport = transport;
        m_scenario = std::make_unique<SocketScenario>(Access().read(), version);
        m_stream = std::make_unique<Stream>(m_scenario->tree.app.get(), service);
        QVERIFY(m_scenario->ready());
    }
    QDBusMessage acquire(const plim::Characteristic* characteristic, const char* member,
                         const QString& device = phonePath)
    {
        const QDBusPendingCall call =
            m_scenario->bluez->call(characteristic->dbusPath(), QString::fromLatin1(member),
                                    {FakeBluez::options(device, "LE"_qs, 247)});
        return QTest::qWaitFor([&] { return call.isFinished(); }, 10000) ? call.reply() : QDBusMessage();
    }
    std::unique_ptr<BluezEnd> end(const QDBusMessage& answer)
    {
        const auto descriptor = answer.arguments().value(0).value<QDBusUnixFileDescriptor>();
        return descriptor.isValid() ? std::make_unique<BluezEnd>(descriptor) : nullptr;
    }
    std::unique_ptr<BluezEnd> subscriber(const QString& device = phonePath)
    {
        return end(acquire(m_stream->tx(), "AcquireNotify", device));
    }
    std::unique_ptr<BluezEnd> writer(const QString& device = phonePath)
    {
        return end(acquire(m_stream->rx(), "AcquireWrite", device));
    }

    std::unique_ptr<SocketScenario> m_scenario;
    std::unique_ptr<Stream> m_stream;
};

void tst_stream_sockets::cleanup()
{
    m_stream.reset();
    m_scenario.reset();
}

void tst_stream_sockets::bytesGoThroughTheSocket()
{
    begin();
    const auto phone = subscriber();
    QVERIFY(phone);
    QCOMPARE(m_stream->central(), Central(phonePath));
    QSignalSpy overTheBus(m_stream->tx(), &GattCharacteristic::PropertiesChanged);
    const QByteArray bytes = StreamPattern::bytes(0, 50000);
    m_stream->write(bytes);
    QByteArrayList packets;
    EVENTUALLY_VERIFY((packets += phone->readAll()).join() == bytes);
    QCOMPARE(m_stream->bytesToWrite(), 0);
    QCOMPARE(packets.size(), 205);
    for (const QByteArray& packet : qAsConst(packets)) {
        QVERIFY(packet.size() <= 244);
    }
    QCOMPARE(overTheBus.size(), 0);
}

void tst_stream_sockets::aFullSocketHoldsTheStreamUp()
{
    begin();
    auto phone = subscriber();
    constexpr int size = 1 << 20;
    qint64 sent = 0;
    const auto fill = [&] { sent += m_stream->write(StreamPattern::bytes(sent, int(size - sent))); };
    connect(m_stream.get(), &Stream::bytesWritten, this, fill);
    fill();
    EVENTUALLY_COMPARE(m_stream->bytesToWrite(), m_stream->writeBufferSize());
    m_scenario->roundTrip();
    QVERIFY(sent < size / 2);
    Arrived arrived(phone);
    EVENTUALLY_COMPARE(arrived.bytes().size(), size);
    QVERIFY(arrived.bytes() == StreamPattern::bytes(0, size));
}

void tst_stream_sockets::theEndOfTheSocketEndsTheConnection()
{
    begin();
    auto phone = subscriber();
    qint64 written = 0;
    connect(m_stream.get(), &Stream::bytesWritten, this, [&](qint64 bytes) {
        written += bytes;
        m_stream->write(StreamPattern::bytes(0, int(bytes)));
    });
    m_stream->write(StreamPattern::bytes(0, 65536));
    EVENTUALLY_VERIFY(written > 16384);
    EVENTUALLY_COMPARE(m_stream->bytesToWrite(), 65536);
    QSignalSpy disconnected(m_stream.get(), &Stream::disconnected);
    phone->close();
    EVENTUALLY_COMPARE(disconnected.size(), 1);
    QCOMPARE(disconnected.first().at(1).toLongLong(), 65536);
    QVERIFY(!m_stream->isOpen());
    phone = subscriber();
    QVERIFY(m_stream->isOpen());
    m_stream->disconnect(this);
    m_stream->write("again");
    Arrived arrived(phone);
    EVENTUALLY_COMPARE(arrived.bytes(), QByteArray("again"));
}

void tst_stream_sockets::aWaitingCentralGetsNothing()
{
    begin();
    auto phone = subscriber();
    auto tablet = subscriber(tabletPath);
    Arrived atPhone(phone);
    Arrived atTablet(tablet);
    m_stream->write("for the phone");
    EVENTUALLY_COMPARE(atPhone.bytes(), QByteArray("for the phone"));
    QCOMPARE(atTablet.bytes(), QByteArray());
    phone->close();
    EVENTUALLY_COMPARE(m_stream->central(), Central(tabletPath));
    m_stream->write("for the tablet");
    EVENTUALLY_COMPARE(atTablet.bytes(), QByteArray("for the tablet"));
}

void tst_stream_sockets::writesAreReadFromTheSocket()
{
    begin();
    const auto phone = subscriber();
    const auto keyboard = writer();
    const auto other = writer(tabletPath);
    QVERIFY(keyboard && other);
    QSignalSpy rejected(m_stream.get(), &Stream::rejected);
    other->write("not me");
    EVENTUALLY_COMPARE(rejected.size(), 1);
    QCOMPARE(rejected.first().first().value<Central>(), Central(tabletPath));
    keyboard->write("led ");
    keyboard->write("on\n");
    EVENTUALLY_VERIFY(m_stream->canReadLine());
    QCOMPARE(m_stream->readLine(), QByteArray("led on\n"));
    QCOMPARE(m_stream->rejectedBytes(), 6);
}

void tst_stream_sockets::aFullReadBufferHoldsTheCentralUp()
{
    begin();
    m_stream->setReadBufferSize(2000);
    const auto phone = subscriber();
    const auto keyboard = writer();
    constexpr int size = 1 << 18;
    int sent = 0;
    const auto write = [&] {
        while (sent < size && keyboard->write(StreamPattern::bytes(sent, 256))) {
            sent += 256;
        }
        m_scenario->roundTrip();
    };
    write();
    EVENTUALLY_VERIFY(m_stream->bytesAvailable() > 2000 - 512);
    write();
    QVERIFY(sent < size / 2 && m_stream->bytesAvailable() <= 2000);
    QByteArray received;
    while (received.size() < size) {
        write();
        EVENTUALLY_VERIFY(m_stream->bytesAvailable() > 0);
        received += m_stream->read(1500);
    }
    QVERIFY(received == StreamPattern::bytes(0, size));
    QCOMPARE(m_stream->rejectedBytes(), 0);
}

void tst_stream_sockets::whatWasWrittenBeforeTheEndIsReceived()
{
    begin();
    auto phone = subscriber();
    auto keyboard = writer();
    m_stream->setReadBufferSize(1000);
    QByteArray last;
    connect(m_stream.get(), &Stream::readChannelFinished, this, [&] { last = m_stream->readAll(); });
    QSignalSpy disconnected(m_stream.get(), &Stream::disconnected);
    keyboard->write("last ");
    keyboard->write("words");
    m_stream->close(); // before the event loop has read them
    QCOMPARE(last, QByteArray("last words"));
    QCOMPARE(disconnected.size(), 1);
    QCOMPARE(disconnected.first().at(2).toLongLong(), 0);
    QCOMPARE(m_stream->rejectedBytes(), 0);
}

void tst_stream_sockets::aSlotMayCloseItWhileTheRestIsReceived()
{
    begin();
    const auto phone = subscriber();
    const auto tablet = subscriber(tabletPath);
    const auto keyboard = writer();
    QSignalSpy connected(m_stream.get(), &Stream::connected);
    QSignalSpy disconnected(m_stream.get(), &Stream::disconnected);
    connect(m_stream.get(), &Stream::readyRead, this, [this] { m_stream->close(); });
    keyboard->write("last words");
    m_stream->close();
    QCOMPARE(m_stream->central(), Central(tabletPath)); // which has waited
    QCOMPARE(disconnected.size(), 1);
    QCOMPARE(connected.size(), 1);
}

void tst_stream_sockets::whatIsWrittenAfterTheEndIsRejected()
{
    begin();
    m_stream->setReadBufferSize(512);
    auto phone = subscriber();
    const auto keyboard = writer();
    keyboard->write(StreamPattern::bytes(0, 300));
    EVENTUALLY_COMPARE(m_stream->bytesAvailable(), 300);
    keyboard->write("waits in the socket");
    m_scenario->roundTrip();
    QCOMPARE(m_stream->bytesAvailable(), 300);
    phone->close();
    EVENTUALLY_VERIFY(!m_stream->isOpen());
    EVENTUALLY_COMPARE(m_stream->rejectedBytes(), 19);
    phone = subscriber();
    keyboard->write("fresh");
    EVENTUALLY_COMPARE(m_stream->bytesAvailable(), 5);
    QCOMPARE(m_stream->readAll(), QByteArray("fresh"));
}

void tst_stream_sockets::before569WritesTakeTheBus()
{
    begin("0542"_qs);
    const auto phone = subscriber();
    QVERIFY(phone);
    QVERIFY(acquire(m_stream->rx(), "AcquireWrite").type() == QDBusMessage::ErrorMessage);
    m_scenario->bluez->send(m_stream->rx()->dbusPath(), "WriteValue"_qs,
                            {QByteArray("hello"), FakeBluez::options(phonePath, "LE"_qs, 247)});
    EVENTUALLY_COMPARE(m_stream->bytesAvailable(), 5);
    QCOMPARE(m_stream->readAll(), QByteArray("hello"));
}

void tst_stream_sockets::before576AllSubscribersGetTheBytes()
{
    begin("0542"_qs);
    auto phone = subscriber(); // the tablet is connected, too
    const QByteArray bytes = StreamPattern::bytes(0, 300000);
    qint64 sent = 0;
    const auto fill = [&] { sent += m_stream->write(bytes.constData() + sent, bytes.size() - sent); };
    connect(m_stream.get(), &Stream::bytesWritten, this, fill);
    fill();
    EVENTUALLY_VERIFY(!m_stream->tx()->missed().isEmpty()); // the socket is full
    Arrived arrived(phone);
    EVENTUALLY_COMPARE(arrived.bytes().size(), bytes.size());
    QVERIFY(arrived.bytes() == bytes);
    m_scenario->set(tabletPath, "Connected"_qs, false);
    m_stream->write("alone");
    EVENTUALLY_COMPARE(arrived.bytes(), bytes + "alone");
}

void tst_stream_sockets::writesHaveASocketOnRequestOnly()
{
    begin("0552"_qs, plim::StreamService().transport);
    QVERIFY(subscriber());
    QVERIFY(!writer());
}

void tst_stream_sockets::withTheBusNoSocketIsGiven()
{
    begin("0552"_qs, Transport::Bus);
    QVERIFY(!subscriber());
    QVERIFY(m_stream->isOpen()); // BlueZ calls StartNotify() now
}

QTEST_GUILESS_MAIN(tst_stream_sockets)
#include "tst_stream_sockets.moc"
