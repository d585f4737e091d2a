#include "Bluetooth.h"

#include "DBusBluez.h"
#include "Expect.h"
#include "Remote.h"
#include "scenes.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QVersionNumber>

namespace {

bool onMachine = false;
QString deviceName = "hci0";
QString phoneName = "hci1";
QString deathOfEmulator;
const QString busSocket = QStringLiteral("/run/dbus/system_bus_socket");

bool powered(const QString& adapter)
{
    return Remote::properties(adapter, Remote::adapterInterface).value("Powered").toBool();
}

QString addressOf(const QString& adapter)
{
    return Remote::properties(adapter, Remote::adapterInterface).value("Address").toString();
}

void configureDaemon(const QByteArray& configuration)
{
    QFile file("/etc/bluetooth/main.conf");
    if (!file.open(QIODevice::WriteOnly)) {
        throw Expect::Impossible{"cannot write the daemon's configuration"};
    }
    file.write(configuration);
}

/** What a newer btmon shows, in the form of 5.66 and 5.82: the bytes of a value without blanks and behind its
 * name, and other names for packets. */
QString olderForm(const QString& text)
{
    static const QRegularExpression bytes("^ +(?:[0-9a-f]{2} ){1,16} ");
    QStringList lines;
    for (const QString& line : text.split('\n')) {
        if (line.startsWith("> LE-ACL:")) {
            lines << "> ACL Data RX:" + line.mid(9);
        } else if (line.startsWith("< LE-ACL:")) {
            lines << "< ACL Data TX:" + line.mid(9);
        } else if (!lines.isEmpty() && lines.constLast().contains("]:") && bytes.match(line).hasMatch()) {
            lines.last() += (lines.constLast().endsWith(':') ? " " : "") + line.left(56).remove(' ');
        } else {
            lines << line;
        }
    }
    return lines.join('\n');
}

} // namespace

void Bluetooth::useMachine(const QString& device, const QString& phone)
{
    onMachine = true;
    deviceName = device;
    phoneName = phone;
}

bool Bluetooth::usesMachine()
{
    return onMachine;
}

Bluetooth::Bluetooth(Nothing, Controllers controllers, Records records)
    : m_kind(controllers), m_records(records)
{
    Expect::setSpoilt([this] {
        noteEmulatorDeath();
        return !deathOfEmulator.isEmpty();
    });
}

// By way of the other constructor, so that the destructor is run even if this one ends with an exception.
Bluetooth::Bluetooth(const QByteArray& configuration, Controllers controllers, Records records)
    : Bluetooth(Nothing(), controllers, records)
{
    if (!onMachine) {
        startAll(configuration);
    } else if (!configuration.isEmpty()) {
        throw Expect::Unsupported{"the machine's daemon keeps its configuration"};
    }
    if (m_records == Recorded) {
        // The kernel drops what btmon does not fetch in time.
        m_monitor = std::make_unique<Child>(
            "controllers", "nice",
            QStringList{"-n", "-15", "stdbuf", "-oL", "btmon", "-w", Child::logs() + "/controllers.btsnoop"});
    }
    if (!onMachine) {
        plugIn();
        startDaemon();
        // Now and then a virtual controller does not answer the kernel's first command, and stays dead.
        if (!Expect::waitFor([this] { return adaptersPowered(); }, 20)) {
            Expect::note("a virtual controller did not start; both are plugged in again");
            killDaemon();
            unplug();
            plugIn();
            startDaemon();
        }
    }
    awaitAdapters();
    Remote::tryCall(
        phone(), Remote::adapterInterface, "RemoveDevice",
        {QVariant::fromValue(QDBusObjectPath(phone() + "/dev_" + deviceAddress().replace(':', '_')))});
}

Bluetooth::~Bluetooth()
{
    noteEmulatorDeath();
    Expect::setSpoilt([] { return false; });
}

QString Bluetooth::emulatorDeath()
{
    return deathOfEmulator;
}

void Bluetooth::noteEmulatorDeath()
{
    if (m_controllers && deathOfEmulator.isEmpty()) {
        deathOfEmulator = m_controllers->death();
    }
}

void Bluetooth::startAll(const QByteArray& configuration)
{
    configureDaemon(configuration);
    QDir("/var/lib/bluetooth").removeRecursively(); // what an earlier daemon remembers
    QDir().mkpath("/run/dbus");
    QFile::remove(busSocket);
    m_bus = std::make_unique<Child>("bus", "dbus-daemon",
                                    QStringList{"--system", "--nofork", "--nopidfile", "--nosyslog"});
    Expect::require([] { return QFile::exists(busSocket); }, "the bus");
    if (m_records == Recorded) {
        m_traffic =
            std::make_unique<Child>("bus-traffic", "dbus-monitor", QStringList{"--system", "--profile"});
    }
}

void Bluetooth::startDaemon()
{
    if (onMachine) {
        QProcess::execute("systemctl", {"start", "bluetooth.service"});
        return;
    }
    m_daemon = std::make_unique<Child>("bluetoothd", "/usr/libexec/bluetooth/bluetoothd",
                                       m_records == Recorded ? QStringList{"-n", "-d"} : QStringList{"-n"});
}

void Bluetooth::killDaemon()
{
    if (onMachine) {
        QProcess::execute("systemctl", {"kill", "--signal=KILL", "bluetooth.service"});
        Expect::require([this] { return !daemonRuns(); }, "the daemon's end");
        return;
    }
    m_daemon->kill();
    m_daemon.reset();
}

bool Bluetooth::daemonRuns() const
{
    if (onMachine) {
        return QDBusConnection::systemBus().interface()->isServiceRegistered(DBusBluezServiceName());
    }
    return m_daemon && m_daemon->running();
}

void Bluetooth::awaitAdapters()
{
    Expect::require([this] { return adaptersPowered(); }, "both adapters to be powered");
}

bool Bluetooth::adaptersPowered() const
{
    return powered(device()) && powered(phone()) &&
           (m_kind == DualMode || onMachine || powered(secondPhone()));
}

void Bluetooth::unplug()
{
    if (onMachine) {
        throw Expect::Unsupported{"real controllers are unplugged by hand"};
    }
    noteEmulatorDeath();
    m_controllers.reset();
    m_otherController.close();
}

void Bluetooth::plugIn()
{
    // What a scan finds follows the answer to "scan" so closely that with several processors the kernel,
    // still busy with the answer, drops it, and btvirt reports each advertiser only once. So the machine has
    // one processor, on which the kernel's own workers go first.
    m_controllers = std::make_unique<Child>("btvirt", "btvirt",
                                            m_kind == LowEnergy       ? QStringList{"-L", "-l3"}
                                            : m_kind == ThreeDualMode ? QStringList{"-l3"}
                                                                      : QStringList{"-l2"});
}

void Bluetooth::plugInAfterAnother()
{
    // The kernel makes a controller for whoever opens this and says so, and asks it in vain what it is.
    m_otherController.setFileName("/dev/vhci");
    const QByteArray create("\xff\x00", 2);
    if (!m_otherController.open(QIODevice::ReadWrite | QIODevice::Unbuffered) ||
        m_otherController.write(create) != create.size()) {
        throw Expect::Impossible{"no further controller: " + m_otherController.errorString()};
    }
    plugIn();
}

QString Bluetooth::device() const
{
    return "/org/bluez/" + deviceName;
}

QString Bluetooth::phone() const
{
    return "/org/bluez/" + phoneName;
}

QString Bluetooth::secondPhone() const
{
    if (onMachine) {
        throw Expect::Unsupported{"the machine has one controller for phones"};
    }
    return "/org/bluez/hci2";
}

QString Bluetooth::deviceAddress() const
{
    return addressOf(device());
}

QString Bluetooth::phoneAddress() const
{
    return addressOf(phone());
}

QString Bluetooth::secondPhoneAddress() const
{
    return addressOf(secondPhone());
}

QString Bluetooth::monitored() const
{
    if (!m_monitor) {
        throw Expect::Unsupported{"the controllers are not watched"};
    }
    const bool isNewer = QVersionNumber::fromString(Scenes::version()) > QVersionNumber(5, 82);
    return isNewer ? olderForm(m_monitor->text()) : m_monitor->text();
}

QString Bluetooth::traffic() const
{
    if (!m_traffic) {
        throw Expect::Unsupported{"the bus is not watched"};
    }
    // dbus-monitor tells of a message some time after its receiver has got it, but keeps the order.
    static int marks = 0;
    const QString mark = "Mark" + QString::number(++marks);
    QDBusConnection::systemBus().send(QDBusMessage::createSignal("/scene", "com.example.Scene", mark));
    Expect::require([&] { return m_traffic->wrote('\t' + mark + '\n'); }, "dbus-monitor");
    return m_traffic->text();
}

QStringList Bluetooth::monitoredErrors() const
{
    const QRegularExpression error("> ACL Data RX:[^\n]*\\[" + phoneName +
                                   "\\][^\n]*\n +ATT: Error Response[^\n]*\n[^\n]*\n"
                                   " +Handle: (0x[0-9a-f]{4})[^\n]*\n +Error: [^\n]*\\((0x[0-9a-f]{2})\\)");
    QStringList errors;
    auto match = error.globalMatch(monitored());
    while (match.hasNext()) {
        const QRegularExpressionMatch found = match.next();
        if (found.captured(2) != "0x0a") { // Attribute Not Found
            errors << found.captured(1) + ' ' + found.captured(2);
        }
    }
    return errors;
}
