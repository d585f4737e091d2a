// The commands for notifications and writes through sockets, and for many of them.

#include "Interpreter.h"
#include "MonotonicTime.h"

#include <plim/peripheral.h>

#include <QTimer>
#include <QtEndian>

#include <memory>

namespace {

/** A number, the time if there is room, and zeros. */
QByteArray numbered(quint32 number, int bytes)
{
    QByteArray value(int(sizeof number) + bytes, 0);
    qToBigEndian(number, value.data());
    if (bytes >= int(sizeof(qint64))) {
        qToBigEndian(monotonicTime(), value.data() + sizeof number);
    }
    return value;
}

/** Values that begin with a number, and each is to have the one after the last. */
class CountedWrites : public QObject
{
public:
    using QObject::QObject;

    void take(const QByteArray& value)
    {
        const quint32 number = value.size() < 4 ? ~0U : qFromBigEndian<quint32>(value.constData());
        m_wrong += number == m_next ? 0 : 1;
        m_next = number + 1;
        ++m_count;
        m_last = monotonicTime();
    }

    void tell(const QString& name)
    {
        say(QString("writes %1 %2 %3 %4").arg(name).arg(m_count).arg(m_wrong).arg(m_last));
    }

private:
    quint32 m_next = 0;
    quint32 m_count = 0;
    quint32 m_wrong = 0;
    qint64 m_last = 0;
};

} // namespace

/** What notify-count does next. */
struct Interpreter::Counting
{
    QString name;
    quint32 number;
    quint32 count;
    int bytes;
    int intervalMs;
    int waits = 0;
};

void Interpreter::sockets(const QStringList& words)
{
    using Transport = plim::Characteristic::Transport;
    find<plim::Characteristic>(words.value(1))
        ->setTransport(words.value(2) == "both-ways" ? Transport::SocketsBothWays : Transport::Sockets);
}

void Interpreter::notifyOnce(const QStringList& words)
{
    auto* characteristic = find<plim::Characteristic>(words.value(1));
    const QByteArray value = QByteArray::fromHex(words.value(2).toLatin1());
    const bool reached = words.size() > 3 ? characteristic->notify(plim::Central(words.at(3)), value)
                                          : characteristic->notify(value);
    say("notified " + words.value(1) + (reached ? " 1" : " 0"));
}

void Interpreter::notifyCount(const QStringList& words)
{
    find<plim::Characteristic>(words.value(1));
    notifyFrom({words.value(1), 0, words.value(2).toUInt(), words.value(3).toInt(), words.value(4).toInt()});
}

void Interpreter::notifyFrom(Counting counting)
{
    auto* characteristic = find<plim::Characteristic>(counting.name);
    while (counting.number < counting.count) {
        if (!characteristic->notify(numbered(counting.number, counting.bytes))) {
            ++counting.waits;
            const auto once = std::make_shared<QMetaObject::Connection>();
            *once = connect(characteristic, &plim::Characteristic::readyToWrite, this, [=] {
                disconnect(*once);
                notifyFrom(counting);
            });
            return;
        }
        ++counting.number;
        if (counting.intervalMs > 0 && counting.number < counting.count) {
            QTimer::singleShot(counting.intervalMs, this, [=] { notifyFrom(counting); });
            return;
        }
    }
    say("counted " + counting.name + ' ' + QString::number(counting.waits));
}

void Interpreter::countWrites(const QStringList& words)
{
    auto* characteristic = find<plim::Characteristic>(words.value(1));
    auto* writes = new CountedWrites(characteristic);
    m_objects["writes " + words.value(1)] = writes;
    characteristic->setWriteHandler([=](const plim::WriteRequest& request) {
        writes->take(request.value());
        request.accept();
    });
}

void Interpreter::countedWrites(const QStringList& words)
{
    const QString name = words.value(1);
    static_cast<CountedWrites*>(find<QObject>("writes " + name))->tell(name);
}
