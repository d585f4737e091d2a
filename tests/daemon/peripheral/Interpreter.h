#pragma once

#include "GapAdvertisement.h"
#include "GattApplication.h"

#include <plim/peripheral.h>

#include <QMap>
#include <QObject>
#include <QPointer>
#include <QStringList>

#include <functional>
#include <memory>

namespace plim {
class Adapter;
class Centrals;
} // namespace plim

/**
 * Builds and changes a peripheral as it is told on standard input, one command a line, each answered with
 * "done" or "wrong REASON" on standard output. In between it prints what happens to the peripheral:
 *
 *     written NAME HEX      a peer wrote; HEX is the whole value then
 *     asked NAME            a read callback was called
 *     notifying NAME 0|1    a peer subscribed or unsubscribed
 *
 * and of what the commands in PeripheralCommands.cpp made:
 *
 *     request NAME read|write CENTRAL OFFSET [HEX]    a handler was called
 *     answered NAME                                   it answers later than at once
 *     subscribed NAME CENTRAL, unsubscribed NAME CENTRAL
 *     confirmed NAME                                  a central confirmed an indication
 *     handle NAME NUMBER                              the daemon chose a service's handle
 *     connected CENTRAL MTU, changed CENTRAL MTU, disconnected CENTRAL REASON
 *     adapter PATH|-                                  the adapter is here, or is not there
 *     powered 0|1                                     it has been switched
 *     ended disconnect|switch [ERROR]                 how a call has ended
 *     onair NAME, offair NAME REASON                  what the keeper tells
 *
 * and of what the commands in SocketCommands.cpp made:
 *
 *     notified NAME 0|1                   what notify() returned
 *     counted NAME WAITS                  all numbers are sent; how often it had to wait for room
 *     writes NAME COUNT WRONG TIME        the answer to "counted-writes": how many came, how many of them did
 *                                         not have the number after the one before, when the last one came
 *
 * and of what the commands in PairingCommands.cpp made:
 *
 *     agent STATE                         the agent's state has changed
 *     pairing KIND CENTRAL [PASSKEY]      a pairing request waits for the command "decide"
 *     pairing-ended KIND CENTRAL          nobody waits for its answer any more
 *     pairing-refused CENTRAL             somebody wanted to pair while no window was open
 *     paired CENTRAL
 *     bonds CENTRAL...                    the answer to the command "bonds"
 *     bond-removed CENTRAL
 *     forgotten CENTRAL [ERROR]
 *     all-forgotten [ERROR]
 *
 * and of what the commands in StreamCommands.cpp made:
 *
 *     stream NAME connected CENTRAL
 *     stream NAME disconnected CENTRAL UNSENT UNREAD      in bytes
 *     stream NAME state RECEIVED WRONG LEFT REJECTED      the answer to "stream-state": bytes received, where
 *                                                         the first wrong ones began or -1, bytes to send
 */
class Interpreter : public QObject
{
    Q_OBJECT

public:
    Interpreter();

    void execute(const QString& line);

private:
    using Command = void (Interpreter::*)(const QStringList& words);
    static const QMap<QString, Command> s_commands;

    // application PATH BUSNAME
    void application(const QStringList& words);
    // service NAME UUID primary|secondary
    void service(const QStringList& words);
    // characteristic NAME SERVICE UUID FLAG,FLAG...|none [CONTROL]
    void characteristic(const QStringList& words);
    // descriptor NAME CHARACTERISTIC UUID FLAG,FLAG...
    void descriptor(const QStringList& words);
    // value CHARACTERISTIC [HEX]: setValue
    void value(const QStringList& words);
    // fill CHARACTERISTIC SIZE: setValue with pattern bytes
    void fill(const QStringList& words);
    // callback NAME [HEX]: a read callback with this answer
    void callback(const QStringList& words);
    // count CHARACTERISTIC COUNT MILLISECONDS: setValue with 1, 2, ... as 32-bit big-endian numbers
    void count(const QStringList& words);
    // delete NAME
    void destroy(const QStringList& words);
    // remove ADVERTISEMENT: the manager is to hold it no longer
    void remove(const QStringList& words);
    // register application: one more call of RegisterApplication
    void registerAgain(const QStringList& words);
    // problems NAME BYTES: prints "problem TEXT" for each of the application ("application") or an
    // advertisement with a controller that can broadcast so many bytes
    void problems(const QStringList& words);
    // tree: prints "tree KIND PATH UUID DETAIL..." for every object
    void tree(const QStringList& words);
    // advertisement NAME PATH all|set
    void advertisement(const QStringList& words);
    // set ADVERTISEMENT PROPERTY VALUE...
    void set(const QStringList& words);
    // add NAME: hands the application ("application") or an advertisement to the manager
    void add(const QStringList& words);
    // choose ADAPTER: BleManager::setAdapter
    void choose(const QStringList& words);
    // centrals ADAPTER: watches those at it, "all" for any
    void centrals(const QStringList& words);
    // disconnect CENTRAL
    void disconnectCentral(const QStringList& words);
    // adapter ADAPTER: watches it
    void adapter(const QStringList& words);
    // switch on|off: the adapter's power
    void switchAdapter(const QStringList& words);
    // log LEVEL
    void log(const QStringList& words);

    // plim-service NAME UUID primary|secondary [PATHELEMENT]
    void plimService(const QStringList& words);
    // plim-characteristic NAME SERVICE UUID ACCESS,ACCESS... [PATHELEMENT]
    //     ACCESS is read, write, write-without-response, notify or indicate; all but write-without-response
    //     may end in :encrypted, :authenticated or :secure
    void plimCharacteristic(const QStringList& words);
    // plim-descriptor NAME CHARACTERISTIC UUID ACCESS,ACCESS...
    void plimDescriptor(const QStringList& words);
    // reads NAME accept HEX|reject CODE|keep - [MILLISECONDS]: a read handler; "keep" never answers
    void reads(const QStringList& words);
    // writes NAME accept|notify|reject CODE|keep - [MILLISECONDS]: a write handler
    void writes(const QStringList& words);
    // track CHARACTERISTIC: trackSubscribers
    void track(const QStringList& words);
    // subscribers CHARACTERISTIC: prints "subscribers NAME CENTRAL CENTRAL..."
    void subscribers(const QStringList& words);
    // handle SERVICE NUMBER
    void handle(const QStringList& words);
    // include SERVICE INCLUDED
    void include(const QStringList& words);

    // sockets CHARACTERISTIC [both-ways]: setTransport
    void sockets(const QStringList& words);
    // notify CHARACTERISTIC HEX|- [CENTRAL]: "-" is an empty value
    void notifyOnce(const QStringList& words);
    // notify-count CHARACTERISTIC COUNT BYTES [MILLISECONDS]: notify() with 0, 1, ... as 32-bit big-endian
    // numbers in front of so many bytes, as fast as it goes or at intervals. The bytes are the time of the
    // call (monotonicTime(), 64-bit big-endian) if there is room for it, and zeros.
    void notifyCount(const QStringList& words);
    // count-writes CHARACTERISTIC: a write handler that expects 0, 1, ... in front of the values; given
    // again, it begins with 0 again
    void countWrites(const QStringList& words);
    // counted-writes CHARACTERISTIC: prints what it has counted
    void countedWrites(const QStringList& words);

    // plim-advertisement NAME PATH
    void plimAdvertisement(const QStringList& words);
    // mode ADVERTISEMENT in-place|register: setUpdateMode
    void mode(const QStringList& words);
    // set-own ADVERTISEMENT PROPERTY VALUE...: a property that the base class cannot set
    void setOwn(const QStringList& words);
    // beacon ADVERTISEMENT COUNT MILLISECONDS: manufacturer data ffff with 0, 1, ..., COUNT as 16-bit
    // big-endian numbers; prints "beacon NAME done"
    void beacon(const QStringList& words);
    // announce ADVERTISEMENT NAME: only the signal that changes the name in place, whether that is safe or
    // not
    void announce(const QStringList& words);
    // keep ADVERTISEMENT [after-timeout] [while-connected]: an AdvertisingKeeper for it
    void keepOnAir(const QStringList& words);
    // standard-services: device information; a battery "battery" at 87 %; a current time "time"
    void standardServices(const QStringList& words);
    // battery-level NAME PERCENT
    void batteryLevel(const QStringList& words);
    // time-changed NAME: notifies the time, because of another time zone
    void timeChanged(const QStringList& words);
    // agent CAPABILITY: the pairing agent; without an argument it ends
    void agent(const QStringList& words);
    // window SECONDS|close
    void window(const QStringList& words);
    // decide accept|reject|drop|PASSKEY: answers the latest pairing request
    void decide(const QStringList& words);

    // bonds: prints them
    void bonds(const QStringList& words);
    // forget CENTRAL|all
    void forget(const QStringList& words);

    // stream NAME [bus|both-ways] [acknowledged] [indicate]: a serial stream that checks what it reads;
    // without sockets, with writes that wait for their answer, with indications
    void stream(const QStringList& words);
    // stream-send NAME BYTES
    void streamSend(const QStringList& words);
    // stream-hold NAME on|off: it does not read, and has the smallest read buffer
    void streamHold(const QStringList& words);
    // stream-state NAME: prints it
    void streamState(const QStringList& words);

    // nothing: only the answer, which says that everything printed before has been printed
    void nothing(const QStringList&) {}

    void observeBonds();

    template <typename Object>
    Object* find(const QString& name) const
    {
        auto* object = qobject_cast<Object*>(m_objects.value(name));
        if (!object) {
            throw "the name " + name;
        }
        return object;
    }
    void keep(const QString& name, GattCharacteristic* characteristic);
    void keep(const QString& name, GattDescriptor* descriptor);
    template <typename Request>
    std::function<void(Request)> handler(const QStringList& words);
    void beaconOnce(const QString& name, quint16 number, quint16 last, int interval);
    struct Counting;
    void notifyFrom(Counting counting);
    void countOnce(const QString& name, quint32 number, quint32 last, int interval);

    GattApplication* m_application = nullptr;
    plim::Centrals* m_centrals = nullptr;
    plim::Adapter* m_adapter = nullptr;
    QMap<QString, QPointer<QObject>> m_objects;
    std::unique_ptr<plim::PairingAgent> m_agent;
    plim::PairingRequest m_pairing;
    plim::Bonds* m_bonds = nullptr; // from the command "agent" on
};

/** Calls the setter that belongs to the property; throws a QString for one that it does not know. */
void setAdvertisementProperty(GapAdvertisement& advertisement, const QString& property,
                              const QStringList& values);

/** Writes a line to standard output at once. */
void say(const QString& line);
