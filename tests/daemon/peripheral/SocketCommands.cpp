// The commands for notifications and writes through sockets.

#include "Interpreter.h"

#include <plim/peripheral.h>

#include <QtEndian>

#include <memory>

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
    notifyFrom(words.value(1), 0, words.value(2).toUInt(), words.value(3).toInt(), 0);
}

void Interpreter::notifyFrom(const QString& name, quint32 number, quint32 count, int bytes, int waits)
{
    auto* characteristic = find<plim::Characteristic>(name);
    for (; number < count; ++number) {
        const quint32 bigEndian = qToBigEndian(number);
        const QByteArray value =
            QByteArray(reinterpret_cast<const char*>(&bigEndian), sizeof bigEndian) + QByteArray(bytes, 0);
        if (!characteristic->notify(value)) {
            const auto once = std::make_shared<QMetaObject::Connection>();
            *once = connect(characteristic, &plim::Characteristic::readyToWrite, this, [=] {
                disconnect(*once);
                notifyFrom(name, number, count, bytes, waits + 1);
            });
            return;
        }
    }
    say("counted " + name + ' ' + QString::number(waits));
}
