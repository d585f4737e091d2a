#pragma once

#include "Attributes.h"
#include "FakeBluez.h"

#include <QByteArrayList>
#include <QDBusPendingReply>
#include <QDBusUnixFileDescriptor>
#include <QtTest>

#include <array>
#include <cerrno>
#include <memory>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

/** BlueZ's end of a socket. */
class BluezEnd
{
public:
    explicit BluezEnd(const QDBusUnixFileDescriptor& descriptor)
        : m_descriptor(::dup(descriptor.fileDescriptor()))
    {
    }
    ~BluezEnd() { close(); }
    Q_DISABLE_COPY(BluezEnd)

    int descriptor() const { return m_descriptor; }

    /** One packet; null if there is none. */
    QByteArray read()
    {
        std::array<char, 1024> bytes;
        const auto length = ::recv(m_descriptor, bytes.data(), bytes.size(), MSG_DONTWAIT);
        return length < 0 ? QByteArray() : QByteArray(bytes.data(), int(length));
    }
    /** All that has arrived. */
    QByteArrayList readAll()
    {
        QByteArrayList packets;
        for (QByteArray packet = read(); !packet.isEmpty(); packet = read()) {
            packets << packet;
        }
        return packets;
    }
    bool write(const QByteArray& packet)
    {
        return ::send(m_descriptor, packet.constData(), std::size_t(packet.size()), MSG_NOSIGNAL) ==
               packet.size();
    }
    /** Whether the library has closed its end. */
    bool isHungUp()
    {
        pollfd state{m_descriptor, 0, 0};
        return ::poll(&state, 1, 0) == 1 && (state.revents & POLLHUP);
    }
    void close()
    {
        if (m_descriptor >= 0) {
            ::close(m_descriptor);
            m_descriptor = -1;
        }
    }

private:
    int m_descriptor;
};

/** The version of BlueZ that a test function is about, by the beginning of its name; 5.82 if it does not
 * tell. */
inline QString versionOfTest()
{
    const QByteArray function = QTest::currentTestFunction();
    if (function.startsWith("withoutAVersion")) {
        return {};
    }
    if (function.startsWith("before569")) {
        return QStringLiteral("0542");
    }
    return function.startsWith("before576") ? QStringLiteral("054B") : QStringLiteral("0552");
}

/** A tree whose characteristic has sockets, and the test as BlueZ, which knows two connected centrals. */
class SocketScenario
{
public:
    /** @param version  as BlueZ tells it, in hexadecimal: "0552" is 5.82; nothing if it is empty */
    explicit SocketScenario(const plim::Access& access, const QString& version = QStringLiteral("0552"))
        : bluez(std::make_unique<FakeBluez>(QStringLiteral("bluez"))), tree(access)
    {
        const QString modalias = QStringLiteral("usb:v1D6Bp0246d") + version;
        bluez->objects[QDBusObjectPath(QStringLiteral("/org/bluez/hci0"))] = {
            {QStringLiteral("org.bluez.Adapter1"), {{QStringLiteral("Modalias"), modalias}}}};
        for (const QString& device : {phonePath, tabletPath}) {
            bluez->objects[QDBusObjectPath(device)] = {
                {deviceInterface, {{QStringLiteral("Connected"), true}, {QStringLiteral("Bonded"), false}}}};
        }
        characteristic = tree.characteristic;
        characteristic->setTransport(plim::Characteristic::Transport::SocketsBothWays);
    }

    /** @return whether the library knows what BlueZ shows */
    bool ready()
    {
        const plim::Adapter adapter; // shares what is known of BlueZ with all objects of this thread
        return bluez->appear() && QTest::qWaitFor([&] { return adapter.isPresent(); }, 20000) && roundTrip();
    }

    /** Everything that BlueZ has sent has been handled on return. */
    bool roundTrip()
    {
        QDBusPendingCall ping = bluez->call(QStringLiteral("/app"), QStringLiteral("GetManagedObjects"), {},
                                            QStringLiteral("org.freedesktop.DBus.ObjectManager"));
        return QTest::qWaitFor([&] { return ping.isFinished(); }, 10000);
    }

    QDBusMessage acquire(const QString& member, const QString& device = phonePath, quint16 mtu = 247)
    {
        const QDBusPendingCall call =
            bluez->call(path, member, {FakeBluez::options(device, QStringLiteral("LE"), mtu)});
        return QTest::qWaitFor([&] { return call.isFinished(); }, 10000) ? call.reply() : QDBusMessage();
    }
    /** @return null if it gets none */
    std::unique_ptr<BluezEnd> socket(const QString& member, const QString& device = phonePath)
    {
        const QDBusPendingReply<QDBusUnixFileDescriptor, quint16> reply = acquire(member, device);
        return reply.isValid() ? std::make_unique<BluezEnd>(reply.value()) : nullptr;
    }
    std::unique_ptr<BluezEnd> subscribe(const QString& device = phonePath)
    {
        return socket(QStringLiteral("AcquireNotify"), device);
    }

    void set(const QString& device, const QString& property, bool value)
    {
        bluez->change(device, deviceInterface, {{property, value}});
        roundTrip();
    }

    const QString deviceInterface = QStringLiteral("org.bluez.Device1");
    const QString path = QStringLiteral("/app/aaaa/c0");
    std::unique_ptr<FakeBluez> bluez;
    Attributes tree;
    plim::Characteristic* characteristic = nullptr;
};

/** What the tests of sockets with BlueZ's versions share: a listener on the bus, and a scenario for each
 * function. */
class SocketVersionsTest : public QObject
{
protected:
    void listen() { m_listener.match("type='signal',member='PropertiesChanged',path='/app/aaaa/c0'"_qs); }
    void begin()
    {
        m_scenario = std::make_unique<SocketScenario>(plim::Access().read().notify(), versionOfTest());
        m_characteristic = m_scenario->characteristic;
        QVERIFY(m_scenario->ready());
        onBus();
    }
    /** How many values were notified over the bus since the last call. */
    int onBus()
    {
        m_listener.ping();
        return int(m_listener.takeSignals().size());
    }

    RawBusClient m_listener;
    std::unique_ptr<SocketScenario> m_scenario;
    plim::Characteristic* m_characteristic = nullptr;
    const plim::Central m_phone{phonePath};
    const plim::Central m_tablet{tabletPath};
};
