#pragma once

#include "SocketScenario.h"

#include <QPointer>
#include <QtEndian>

#include <memory>
#include <random>
#include <vector>

/** BlueZ's ends of the sockets of one round. */
struct Peer
{
    QString device;
    std::unique_ptr<BluezEnd> end;
    bool isNotified = false;
    qint64 last = -1; ///< the last number that was read
};

/**
 * One tree with sockets, a hostile BlueZ, and a program whose slots delete what they are called from. Values
 * that are sent carry increasing numbers, so that each socket shows whether one came twice or too early.
 */
class RandomSockets
{
public:
    RandomSockets(std::mt19937& random, const QString& version)
        : m_random(random),
          m_scenario(plim::Access().read().write().writeWithoutResponse().notify().indicate(), version)
    {
        m_characteristic = m_scenario.characteristic;
        watch();
    }

    bool ready() { return m_scenario.ready(); }
    QString wrong() const { return m_wrong; }

    void step()
    {
        switch (pick(12)) {
        case 0:
            acquire(true);
            break;
        case 1:
            acquire(false);
            break;
        case 2:
        case 3:
        case 4:
            notify();
            break;
        case 5:
            write();
            break;
        case 6:
            readSome();
            break;
        case 7:
            endSome();
            break;
        case 8:
            changeDevice();
            break;
        case 9:
            callOverTheBus();
            break;
        case 10:
            changeTree();
            break;
        default:
            QCoreApplication::processEvents();
        }
    }

    /** Reads all that is left. */
    void finish()
    {
        for (Peer& peer : m_peers) {
            readAll(peer);
        }
        QCoreApplication::processEvents();
    }

private:
    int pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(m_random); }
    QString anyDevice() { return pick(2) ? phonePath : tabletPath; }
    Peer* anyPeer()
    {
        return m_peers.empty() ? nullptr : &m_peers.at(std::size_t(pick(int(m_peers.size()))));
    }

    /** The slots of the program, which sometimes delete the characteristic. */
    void watch()
    {
        using plim::Characteristic;
        const auto end = [this] {
            if (pick(20) == 0) {
                delete m_characteristic;
            }
        };
        Characteristic* object = m_characteristic;
        QObject::connect(object, &Characteristic::subscribed, object, end);
        QObject::connect(object, &Characteristic::unsubscribed, object, end);
        QObject::connect(object, &Characteristic::confirmed, object, end);
        QObject::connect(object, &Characteristic::readyToWrite, object, end);
        QObject::connect(object, &GattCharacteristic::valueChanged, object, end);
        QObject::connect(object, &GattCharacteristic::notifyStateChanged, object, end);
        if (pick(2)) {
            object->setWriteHandler([this](const plim::WriteRequest& request) {
                if (pick(10) == 0) {
                    delete m_characteristic;
                }
                pick(2) ? request.accept() : request.reject(plim::AttError::WriteNotPermitted);
            });
        }
    }

    void acquire(bool notifications)
    {
        if (!m_characteristic || m_peers.size() > 8) {
            return;
        }
        const QString device = anyDevice();
        auto end = m_scenario.socket(notifications ? "AcquireNotify"_qs : "AcquireWrite"_qs, device);
        if (end) {
            m_peers.push_back({device, std::move(end), notifications, m_number - 1});
        }
    }

    void notify()
    {
        if (!m_characteristic) {
            return;
        }
        // Sometimes more than fits.
        for (int i = pick(8) ? pick(20) : 500; i > 0 && m_characteristic; --i) {
            const qint64 number = qToBigEndian(m_number++);
            const QByteArray value = QByteArray(reinterpret_cast<const char*>(&number), sizeof number) +
                                     QByteArray(pick(600), 'x');
            const plim::Central central(anyDevice());
            switch (pick(16)) {
            case 0:
                m_characteristic->notify("");
                break;
            case 1:
            case 2:
                m_characteristic->notify(central, value);
                break;
            case 3:
                m_characteristic->setValue(value);
                break;
            default:
                m_characteristic->notify(value);
            }
            if (m_characteristic && m_characteristic->bytesToWrite(central) < 0) {
                m_wrong = "a negative number of bytes"_qs;
            }
        }
    }

    /** Confirmations, writes, and what is neither. */
    void write()
    {
        if (Peer* peer = anyPeer()) {
            static const int sizes[] = {0, 1, 1, 20, 511, 512, 513, 900};
            peer->end->write(QByteArray(sizes[pick(8)], '\1'));
        }
    }

    void readSome()
    {
        if (Peer* peer = anyPeer()) {
            if (pick(2)) {
                readAll(*peer);
            } else {
                check(*peer, peer->end->read());
            }
        }
    }
    void readAll(Peer& peer)
    {
        for (QByteArray packet = peer.end->read(); !packet.isEmpty(); packet = peer.end->read()) {
            check(peer, packet);
        }
    }
    void check(Peer& peer, const QByteArray& packet)
    {
        if (packet.isEmpty() || packet.at(0) != 0) {
            return; // nothing, or what a central wrote, which is notified as well
        }
        const qint64 number = packet.size() < 8 ? -1 : qFromBigEndian<qint64>(packet.constData());
        if (!peer.isNotified || packet.size() > 512 || number <= peer.last) {
            m_wrong = "a packet of %1 bytes with number %2 after %3"_qs.arg(packet.size())
                          .arg(number)
                          .arg(peer.last);
        }
        peer.last = number;
    }

    /** Closes a socket, or half of it. */
    void endSome()
    {
        if (m_peers.empty()) {
            return;
        }
        const auto peer = m_peers.begin() + pick(int(m_peers.size()));
        switch (pick(4)) {
        case 0:
            ::shutdown(peer->end->descriptor(), SHUT_RDWR);
            break;
        case 1:
            ::shutdown(peer->end->descriptor(), SHUT_WR);
            break;
        default:
            m_peers.erase(peer);
        }
    }

    void changeDevice()
    {
        const QString device = anyDevice();
        const QString property = pick(3) ? "Connected"_qs : "Bonded"_qs;
        m_scenario.bluez->change(device, m_scenario.deviceInterface, {{property, pick(2) == 0}});
        if (pick(20) == 0) {
            m_scenario.bluez->remove(device, {m_scenario.deviceInterface});
            m_scenario.bluez->add(device, {{m_scenario.deviceInterface, {{"Connected"_qs, true}}}});
        }
    }

    void callOverTheBus()
    {
        static const QStringList members{"StartNotify"_qs, "StopNotify"_qs, "Confirm"_qs};
        if (const int which = pick(4); which < 3) {
            m_scenario.bluez->send(m_scenario.path, members.at(which));
        } else {
            m_scenario.bluez->send(
                m_scenario.path, "WriteValue"_qs,
                {QByteArray(pick(700), 'y'), FakeBluez::options(anyDevice(), "LE"_qs, quint16(pick(600)))});
        }
    }

    /** The end of all, and a new beginning. */
    void changeTree()
    {
        switch (pick(m_characteristic ? 30 : 2)) {
        case 0:
            delete m_characteristic;
            break;
        case 1:
            if (!m_characteristic) {
                m_characteristic = plim::Characteristic::create(
                    m_scenario.tree.service, "c0"_qs,
                    plim::Access().read().writeWithoutResponse().notify().indicate());
                m_characteristic->setTransport(plim::Characteristic::Transport::SocketsBothWays);
                watch();
            }
            break;
        case 2:
            delete m_scenario.tree.app->createService("bbbb"_qs, true);
            break;
        case 3:
            m_characteristic->setTransport(pick(2) ? plim::Characteristic::Transport::Bus
                                                   : plim::Characteristic::Transport::SocketsBothWays);
            break;
        default:
            break;
        }
    }

    std::mt19937& m_random;
    SocketScenario m_scenario;
    QPointer<plim::Characteristic> m_characteristic;
    std::vector<Peer> m_peers;
    qint64 m_number = 0;
    QString m_wrong;
};
