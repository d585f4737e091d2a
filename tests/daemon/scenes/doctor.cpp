// plim-ble-doctor with the real daemon.

#include "Bluetooth.h"
#include "Expect.h"
#include "Phone.h"
#include "Remote.h"
#include "scenes.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>

namespace {

const QString name = QStringLiteral("org.example.Doctored");
const QString service = QStringLiteral("9d0c5e6a-1f4b-4c8a-a3a1-706c696d0001");
const QString characteristic = QStringLiteral("9d0c5e6a-1f4b-4c8a-a3a1-706c696d0002");

/** One run of the doctor. */
class Doctor
{
public:
    explicit Doctor(QStringList arguments, QStringList wrapper = {})
    {
        wrapper << QCoreApplication::applicationDirPath() + "/plim-ble-doctor"
                << "--json";
        arguments = wrapper.mid(1) + arguments;
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.start(wrapper.constFirst(), arguments);
    }

    /** Waits until it has ended, and notes everything that it found. */
    void finish()
    {
        Expect::require([this] { return m_process.state() == QProcess::NotRunning; }, "the doctor to end",
                        200);
        const QJsonDocument whole = QJsonDocument::fromJson(m_process.readAllStandardOutput());
        for (const QJsonValue finding : whole.object()["findings"].toArray()) {
            m_findings.append(finding.toObject());
            Expect::note("doctor: " + finding["severity"].toString() + ' ' + finding["text"].toString());
        }
    }

    /** Ends a trial before its time. */
    void interrupt() { m_process.terminate(); }

    int exitCode() const { return m_process.exitCode(); }

    /** The finding of that name, the first of several; empty where there is none. */
    QJsonObject finding(const QString& wanted) const
    {
        for (const QJsonObject& found : m_findings) {
            if (found["name"].toString() == wanted) {
                return found;
            }
        }
        return {};
    }
    QJsonObject values(const QString& wanted) const { return finding(wanted)["values"].toObject(); }

    void expect(const QString& wanted, const QString& severity, const QString& what) const
    {
        Expect::equal(finding(wanted)["severity"].toString(), severity, what);
    }

private:
    QProcess m_process;
    QList<QJsonObject> m_findings;
};

std::unique_ptr<Doctor> examined(const QStringList& arguments = {}, const QStringList& wrapper = {})
{
    auto doctor = std::make_unique<Doctor>(arguments, wrapper);
    doctor->finish();
    return doctor;
}

void aHealthyMachine(const Bluetooth& bluetooth)
{
    const auto asRoot = examined({"--name", name});
    Expect::equal(asRoot->values("daemon.running")["version"].toString(), Scenes::version(),
                  "the doctor prints the daemon's version");
    Expect::equal(asRoot->values("adapter.on")["address"].toString(), bluetooth.deviceAddress(),
                  "the adapter is on, at its address");
    asRoot->expect("adapter.several", "warning", "a second adapter is a warning");
    Expect::equal(asRoot->values("gatt.present")["manager"].toString(), bluetooth.device(),
                  "applications are taken at the first");
    Expect::that(asRoot->values("advertising.instances")["left"].toInt() > 0,
                 "there is room for advertisements");
    Expect::that(asRoot->values("advertising.capabilities")["includes"].toArray().contains("tx-power"),
                 "it prints what advertisements can include");
    asRoot->expect("name.refused", "problem", "a name takes a policy, even for root");
    asRoot->expect("calls.arrive", "ok", "the daemon's calls arrive");
    Expect::equal(asRoot->exitCode(), 1, "the exit code reports the problem");

    const auto asAnybody =
        examined({}, {"setpriv", "--reuid", "nobody", "--regid", "nogroup", "--clear-groups"});
    Expect::equal(asAnybody->values("daemon.running")["version"].toString(), Scenes::version(),
                  "any user learns the version");
    Expect::equal(asAnybody->exitCode(), 0, "and has no problem");
}

void aTrial(const Bluetooth& bluetooth)
{
    Doctor doctor({"--serve", "--advertise", "--seconds", "600"});
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    Expect::that(
        phone.discover([](const QVariantMap& seen) { return seen.value("Name") == "plim-ble-doctor"; }),
        "a phone sees the name that the doctor promises");
    Expect::that(phone.device().value("UUIDs").toStringList().contains(service), "and the service");
    phone.connectDevice();
    Expect::equal(phone.read(characteristic), QByteArray("plim-ble-doctor"), "it reads the characteristic");
    doctor.interrupt();
    doctor.finish();
    doctor.expect("serve.registered", "ok", "the application was registered");
    doctor.expect("advertise.registered", "ok", "the advertisement, too");
    Expect::that(doctor.values("serve.read")["reads"].toInt() > 0, "the read was counted");
    Expect::equal(doctor.exitCode(), 0, "there was no problem");
    phone.disconnectDevice();
}

void anAdapterThatIsOff(const Bluetooth& bluetooth)
{
    Remote::setProperty(bluetooth.device(), Remote::adapterInterface, "Powered", false);
    const auto doctor = examined({"--advertise"});
    Expect::equal(doctor->values("adapter.off")["adapter"].toString(), bluetooth.device(),
                  "an adapter that is switched off is a problem");
    doctor->expect("trial.skipped", "warning", "nothing is advertised then");
    Remote::setProperty(bluetooth.device(), Remote::adapterInterface, "Powered", true);
}

void aPolicyThatKeepsTheDaemonOut()
{
    const QString path = "/etc/dbus-1/system.d/doctored.conf";
    QFile policy(path);
    if (!policy.open(QIODevice::WriteOnly)) {
        throw Expect::Impossible{"cannot write a policy"};
    }
    policy.write("<busconfig><policy context='mandatory'><allow own='org.example.Doctored'/>"
                 "<deny send_destination='org.example.Doctored'/></policy></busconfig>");
    policy.close();
    QProcess::execute("dbus-send", {"--system", "--print-reply", "--dest=org.freedesktop.DBus", "/",
                                    "org.freedesktop.DBus.ReloadConfig"});
    const auto doctor = examined({"--name", name, "--serve", "--advertise"});
    doctor->expect("name.owned", "ok", "a policy lets the name be owned");
    doctor->expect("calls.blocked", "problem", "and keeps the daemon's calls from it");
    doctor->expect("trial.skipped", "warning", "so nothing is registered");
    QFile::remove(path);
}

} // namespace

void Scenes::doctor()
{
    if (!Bluetooth::usesMachine()) {
        const auto withoutBus = examined();
        Expect::equal(withoutBus->finding("bus.unreachable")["remedy"].toString(),
                      QString("Start it: systemctl start dbus"), "without a bus the remedy is to start it");
    }
    Bluetooth bluetooth;
    aHealthyMachine(bluetooth);
    aTrial(bluetooth);
    anAdapterThatIsOff(bluetooth);
    if (Bluetooth::usesMachine()) {
        throw Expect::Unsupported{"the machine's policy, controllers and daemon stay as they are"};
    }
    aPolicyThatKeepsTheDaemonOut();
    bluetooth.unplug();
    const auto isGone = [](const QString& adapter) {
        return Remote::properties(adapter, Remote::adapterInterface).isEmpty();
    };
    Expect::require([&] { return isGone(bluetooth.device()) && isGone(bluetooth.phone()); },
                    "the adapters to go");
    examined()->expect("adapter.none", "problem", "no adapter is a problem");
    bluetooth.killDaemon();
    examined()->expect("daemon.does-not-start", "problem",
                       "a daemon that is gone and cannot be started, too");
}
