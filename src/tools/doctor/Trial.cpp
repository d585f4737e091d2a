#include "Trial.h"

#include "Adapters.h"
#include "BleManager.h"
#include "CommandLine.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"
#include "Report.h"

#include <QTimer>

#include <csignal>

namespace doctor {

namespace {

const QString applicationPath = QStringLiteral("/org/plim/doctor/device");
const QString advertisementPath = QStringLiteral("/org/plim/doctor/advertisement");
const QString serviceUuid = QStringLiteral("9d0c5e6a-1f4b-4c8a-a3a1-706c696d0001");
const QString characteristicUuid = QStringLiteral("9d0c5e6a-1f4b-4c8a-a3a1-706c696d0002");
const QString text =
    QStringLiteral("plim-ble-doctor"); // the name that is advertised, and the value that is read

constexpr int QuietMs = 2000;
constexpr int TickMs = 5000;
constexpr int GlanceMs = 100;

volatile std::sig_atomic_t isInterrupted = 0;

void interrupt(int)
{
    isInterrupted = 1;
}

QString seconds(int milliseconds)
{
    return QString("%1 s").arg(milliseconds / 1000);
}

} // namespace

Trial::Trial(const CommandLine& options, const Adapters& adapters, Report& report)
    : m_options(options), m_adapters(adapters), m_report(report)
{
}

Trial::~Trial() = default;

void Trial::run()
{
    BleManager* manager = BleManager::instance();
    manager->setRegistrationObserver([this](const BleRegistrationEvent& event) { onEvent(event); });
    if (m_options.serves) {
        buildApplication();
        manager->add(m_application.get());
    }
    if (m_options.advertises) {
        buildAdvertisement();
        manager->add(m_advertisement.get());
    }
    awaitAnswers();
    if (!m_isOver && (m_isServed || m_isAdvertised)) {
        stay();
    }
    manager->setRegistrationObserver({});
}

void Trial::buildApplication()
{
    const QString name = m_options.name.isEmpty() ? QString("org.plim.Doctor") : m_options.name;
    m_application = std::make_unique<GattApplication>(nullptr, applicationPath, name);
    GattService* service = m_application->createService(serviceUuid, true);
    GattCharacteristic* characteristic =
        service->createCharacteristic(characteristicUuid, GattCharacteristic::Read);
    characteristic->setReadCallback([this] {
        ++m_reads;
        return text.toUtf8();
    });
    m_unanswered += "application";
}

void Trial::buildAdvertisement()
{
    m_advertisement =
        std::make_unique<GapAdvertisement>(nullptr, advertisementPath, GapAdvertisement::SetProperties);
    m_advertisement->setLocalName(text);
    m_advertisement->setServiceUUIDs({serviceUuid});
    m_unanswered += "advertisement";
}

void Trial::onEvent(const BleRegistrationEvent& event)
{
    if (m_isOver) {
        return;
    }
    switch (event.kind) {
    case BleRegistrationEvent::StepSucceeded:
    case BleRegistrationEvent::StepFailed:
        onAnswer(event);
        break;
    case BleRegistrationEvent::AdvertisementReleased:
        m_report.problem("advertise.released", "bluetoothd ended the advertisement early.",
                         "Check its log: journalctl -u bluetooth");
        endEarly();
        break;
    case BleRegistrationEvent::ManagerGone:
        m_report.problem("trial.lost", "bluetoothd or its adapter disappeared during the trial.",
                         "Check its log: journalctl -u bluetooth");
        endEarly();
        break;
    case BleRegistrationEvent::ManagerAppeared:
        break;
    }
}

void Trial::endEarly()
{
    m_isOver = true;
    m_loop.quit();
}

void Trial::onAnswer(const BleRegistrationEvent& event)
{
    const QString what = event.objectPath == applicationPath ? "application" : "advertisement";
    const QVariantMap values{{"what", what}, {"error", event.errorName}, {"message", event.errorMessage}};
    if (event.errorName == "org.freedesktop.DBus.Error.NoReply" || m_unanswered.removeAll(what) == 0) {
        return; // a missing answer is reported when waiting ends
    }
    if (event.kind == BleRegistrationEvent::StepSucceeded) {
        what == "application" ? tellWhatIsServed() : tellWhatIsAdvertised();
    } else if (what == "advertisement" && event.errorName == "org.bluez.Error.NotPermitted") {
        m_report.problem("advertise.full", "bluetoothd accepts no more advertisements: " + event.errorMessage,
                         "Stop another program that advertises. Only bluetoothd knows which programs do: "
                         "stop them one by one.",
                         values);
    } else {
        m_report.problem(
            "trial.refused",
            QString("bluetoothd rejected the %1: %2 (%3)").arg(what, event.errorMessage, event.errorName),
            "Check its log: journalctl -u bluetooth", values);
    }
    if (m_unanswered.isEmpty()) {
        m_loop.quit();
    }
}

void Trial::tellWhatIsServed()
{
    m_isServed = true;
    m_report.ok("serve.registered",
                QString("An application is registered for %1. A phone that connects to %2 should now see the "
                        "service %3 with the characteristic %4, whose value is \"%5\".%6")
                    .arg(seconds(m_options.trialMs), m_adapters.gatt.address, serviceUuid, characteristicUuid,
                         text,
                         m_options.advertises ? "" : " Add --advertise so that the phone finds the device."),
                {{"address", m_adapters.gatt.address},
                 {"service", serviceUuid},
                 {"characteristic", characteristicUuid}});
}

void Trial::tellWhatIsAdvertised()
{
    m_isAdvertised = true;
    m_report.ok(
        "advertise.registered",
        QString("An advertisement is registered for %1. A phone that scans should now see the name \"%2\" at "
                "%3, with the service %4.")
            .arg(seconds(m_options.trialMs), text, m_adapters.advertising.address, serviceUuid),
        {{"address", m_adapters.advertising.address}, {"localName", text}, {"service", serviceUuid}});
}

void Trial::awaitAnswers()
{
    QTimer patience;
    QObject::connect(&patience, &QTimer::timeout, &m_loop, &QEventLoop::quit);
    patience.start(m_options.timeoutMs);
    QTimer::singleShot(QuietMs, &patience, [this] {
        if (!m_unanswered.isEmpty()) {
            Report::progress("waiting for the answer about the " + m_unanswered.join(" and the "));
        }
    });
    m_loop.exec();
    for (const QString& what : m_isOver ? QStringList() : m_unanswered) {
        m_report.problem("trial.silent",
                         QString("bluetoothd did not answer the registration of the %2 within %1.")
                             .arg(seconds(m_options.timeoutMs), what),
                         "Restart it: systemctl restart bluetooth", {{"what", what}});
    }
}

void Trial::stay()
{
    QTimer end;
    end.setSingleShot(true);
    end.setTimerType(Qt::PreciseTimer);
    QObject::connect(&end, &QTimer::timeout, &m_loop, &QEventLoop::quit);
    end.start(m_options.trialMs);
    QTimer tick;
    QObject::connect(&tick, &QTimer::timeout,
                     [&end] { Report::progress(seconds(end.remainingTime() + 500) + " left"); });
    tick.start(TickMs);
    // From here on Ctrl+C ends the trial, not the program.
    std::signal(SIGINT, interrupt);
    std::signal(SIGTERM, interrupt);
    Report::progress(seconds(m_options.trialMs) + " left");
    QTimer glance;
    QObject::connect(&glance, &QTimer::timeout, [this] { isInterrupted ? m_loop.quit() : void(); });
    glance.start(GlanceMs);
    m_loop.exec();
    if (m_isServed && !m_isOver) {
        const QString times = m_reads == 1 ? QString("once") : QString("%1 times").arg(m_reads);
        m_report.ok("serve.read",
                    m_reads == 0 ? QString("Nobody has read the characteristic.")
                                 : QString("The characteristic was read %1.").arg(times),
                    {{"reads", m_reads}});
    }
}

} // namespace doctor
