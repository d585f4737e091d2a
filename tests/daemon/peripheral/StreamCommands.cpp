// The commands for a serial stream.

#include "Interpreter.h"
#include "StreamPattern.h"

namespace {

/** Writes the pattern as the stream takes it, and checks what it reads. */
class PatternStream : public QObject
{
public:
    PatternStream(const QString& name, GattApplication* application, const plim::StreamService& service)
        : QObject(application), m_stream(application, service)
    {
        using plim::Central;
        using plim::Stream;
        connect(&m_stream, &Stream::connected, this, [=](const Central& central) {
            m_received = StreamPattern();
            say("stream " + name + " connected " + central.path());
        });
        connect(&m_stream, &Stream::disconnected, this,
                [=](const Central& central, qint64 unsentBytes, qint64 unreadBytes) {
                    m_left = 0;
                    say(QString("stream %1 disconnected %2 %3 %4")
                            .arg(name, central.path())
                            .arg(unsentBytes)
                            .arg(unreadBytes));
                });
        connect(&m_stream, &Stream::readyRead, this, &PatternStream::read);
        connect(&m_stream, &Stream::bytesWritten, this, &PatternStream::fill);
        setObjectName(name);
    }

    void send(qint64 count)
    {
        m_sent = 0;
        m_left = count;
        fill();
    }

    void hold(bool isHeld)
    {
        m_isHeld = isHeld;
        m_stream.setReadBufferSize(isHeld ? 0 : 65536);
        read();
    }

    void tell() const
    {
        say(QString("stream %1 state %2 %3 %4 %5")
                .arg(objectName())
                .arg(m_received.count())
                .arg(m_received.firstWrong())
                .arg(m_stream.bytesToWrite() + m_left)
                .arg(m_stream.rejectedBytes()));
    }

private:
    void read()
    {
        if (!m_isHeld && m_stream.isOpen()) {
            m_received.take(m_stream.readAll());
        }
    }

    void fill()
    {
        constexpr int most = 16384;
        while (m_left > 0) {
            const qint64 taken =
                m_stream.write(StreamPattern::bytes(m_sent, int(qMin<qint64>(m_left, most))));
            if (taken <= 0) {
                return;
            }
            m_sent += taken;
            m_left -= taken;
        }
    }

    plim::Stream m_stream;
    StreamPattern m_received;
    qint64 m_sent = 0;
    qint64 m_left = 0;
    bool m_isHeld = false;
};

} // namespace

void Interpreter::stream(const QStringList& words)
{
    plim::StreamService service;
    if (words.contains("bus")) {
        service.transport = plim::Characteristic::Transport::Bus;
    }
    if (words.contains("both-ways")) {
        service.transport = plim::Characteristic::Transport::SocketsBothWays;
    }
    if (words.contains("acknowledged")) {
        service.rxAccess = plim::Access().write();
    }
    if (words.contains("indicate")) {
        service.txAccess = plim::Access().indicate();
    }
    m_objects[words.value(1)] = new PatternStream(words.value(1), m_application, service);
}

void Interpreter::streamSend(const QStringList& words)
{
    static_cast<PatternStream*>(find<QObject>(words.value(1)))->send(words.value(2).toLongLong());
}

void Interpreter::streamState(const QStringList& words)
{
    static_cast<PatternStream*>(find<QObject>(words.value(1)))->tell();
}

void Interpreter::streamHold(const QStringList& words)
{
    static_cast<PatternStream*>(find<QObject>(words.value(1)))->hold(words.value(2) == "on");
}
