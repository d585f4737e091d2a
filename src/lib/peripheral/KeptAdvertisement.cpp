#include "KeptAdvertisement.h"

#include "BleManager.h"
#include "BluezInterfaces.h"
#include "GapAdvertisement.h"
#include "RadioWatch.h"
#include "plim.h"
#include "plimlog.h"

#include <QDBusError>

using Phase = BleRegistrationState;

namespace {

/** Causes that come together give one registration. */
constexpr int settleMs = 100;

constexpr int firstDelayMs = 1000;
constexpr int longestDelayMs = 60000;

/** 1, 2, 4, 8, 16, 32, then always 60 s. */
int delayAfter(int failures)
{
    constexpr int doublings = 6;
    return failures > doublings ? longestDelayMs : firstDelayMs << (failures - 1);
}

Phase stateOf(const GapAdvertisement* advertisement)
{
    return BleManager::instance()->registrationState(advertisement);
}

/** Whether BlueZ would say the same again, until the program changes the advertisement, which registers it.
 */
bool isForItsContent(const Phase& state)
{
    return state.errorMessage == QLatin1String("Failed to parse advertisement.") ||
           state.errorName == QDBusError::errorString(QDBusError::InvalidObjectPath);
}

} // namespace

plim::detail::KeptAdvertisement::KeptAdvertisement(const GapAdvertisement* advertisement,
                                                   const RadioWatch& radio, QObject* keeper)
    : QObject(keeper), m_advertisement(advertisement), m_path(advertisement->dbusPath()), m_radio(radio)
{
    m_timer.setSingleShot(true);
    plim::connect(&m_timer, &QTimer::timeout, this, &KeptAdvertisement::registerAgain);
    plim::connect(advertisement, &GapAdvertisement::dataChanged, this, &KeptAdvertisement::onChanged);
    QMetaObject::invokeMethod(this, &KeptAdvertisement::start, Qt::QueuedConnection);
}

QString plim::detail::KeptAdvertisement::adapter() const
{
    return stateOf(m_advertisement).managerPath;
}

bool plim::detail::KeptAdvertisement::isRegistered() const
{
    return stateOf(m_advertisement).phase == Phase::Registered;
}

bool plim::detail::KeptAdvertisement::isConnectable() const
{
    return m_advertisement && m_advertisement->type() == QLatin1String("peripheral");
}

/** What has happened meanwhile. */
void plim::detail::KeptAdvertisement::start()
{
    const Phase state = stateOf(m_advertisement);
    if (state.phase == Phase::Registered) {
        onAccepted();
    } else if (state.phase == Phase::Refused) {
        onRefused();
    }
}

void plim::detail::KeptAdvertisement::request()
{
    if (m_isEnded) {
        return;
    }
    m_isRequested = true;
    schedule(settleMs);
}

void plim::detail::KeptAdvertisement::interrupt(AdvertisingKeeper::Reason reason)
{
    // Before the end of the interruption, nothing can be done.
    m_timer.stop();
    m_failures = 0;
    leaveAir(reason);
}

void plim::detail::KeptAdvertisement::roomAppeared()
{
    if (m_isForWantOfRoom && m_isRefused) {
        schedule(settleMs);
    }
}

void plim::detail::KeptAdvertisement::handle(const BleRegistrationEvent& event)
{
    if (event.kind == BleRegistrationEvent::ManagerGone) {
        // When it is back, BleManager registers everything. On a busy machine it may have done so by now: the
        // present state does not matter.
        if (event.managerInterface == BluezInterfaces::AdvertisingManager) {
            m_isRequested = false;
            m_isRefused = false;
            // If a slot ran an event loop, what came after this may have been told before.
            QMetaObject::invokeMethod(this, &KeptAdvertisement::start, Qt::QueuedConnection);
            interrupt(AdvertisingKeeper::BluezGone);
        }
    } else if (event.objectPath == m_path) {
        const Phase state = stateOf(m_advertisement);
        if (state.phase == Phase::Registered) {
            onAccepted();
        } else if (state.phase == Phase::Refused && event.kind == BleRegistrationEvent::StepFailed) {
            onRefused();
        } else if (state.phase == Phase::Dropped &&
                   event.kind == BleRegistrationEvent::AdvertisementReleased) {
            onReleased();
        } else if (state.phase == Phase::Dropped || state.phase == Phase::NotHeld) {
            stop();
            interrupt(AdvertisingKeeper::Unregistered);
        }
    }
}

void plim::detail::KeptAdvertisement::stop()
{
    m_timer.stop();
    m_isEnded = true;
    m_isRequested = false;
    m_isRefused = false;
}

void plim::detail::KeptAdvertisement::onAccepted()
{
    m_isEnded = false;
    m_isRefused = false;
    m_isForWantOfRoom = false;
    m_failures = 0;
    m_timer.stop();
    if (m_isRequested) {
        // A cause that came after the registration was sent.
        schedule(settleMs);
    }
    if (!m_isOnAir && m_radio.isReady(adapter())) {
        m_isOnAir = true;
        emit wentOnAir();
    }
}

void plim::detail::KeptAdvertisement::onRefused()
{
    const Phase state = stateOf(m_advertisement);
    m_isEnded = false;
    m_isForWantOfRoom = state.errorMessage == QLatin1String("Maximum advertisements reached");
    m_isRefused = !isForItsContent(state);
    m_timer.stop();
    if (m_isRequested) {
        schedule(settleMs);
    } else if (m_isRefused && m_radio.isReady(state.managerPath)) {
        scheduleRetry();
    }
    leaveAir(AdvertisingKeeper::Refused);
}

void plim::detail::KeptAdvertisement::onReleased()
{
    if (m_advertisement && m_advertisement->timeout() != 0 && !m_isAfterTimeout) {
        stop();
    } else {
        request();
    }
    leaveAir(AdvertisingKeeper::Released);
}

/** The manager registers it at this moment, which covers every cause so far. */
void plim::detail::KeptAdvertisement::onChanged()
{
    m_isRequested = false;
}

/** Starts the timer, unless it ends earlier anyway. */
void plim::detail::KeptAdvertisement::schedule(int milliseconds)
{
    if (!m_timer.isActive() || m_timer.remainingTime() > milliseconds) {
        m_timer.start(milliseconds);
    }
}

void plim::detail::KeptAdvertisement::scheduleRetry()
{
    ++m_failures;
    schedule(delayAfter(m_failures));
}

void plim::detail::KeptAdvertisement::registerAgain()
{
    const Phase state = stateOf(m_advertisement);
    // While there is no manager of BlueZ's, BleManager waits for it.
    const bool canRegister = m_advertisement && (m_isRequested || m_isRefused) &&
                             state.phase != Phase::NotHeld && state.phase != Phase::WaitingForBlueZ;
    // A pending registration's answer, or the end of an interruption, leads here again.
    if (!canRegister || state.phase == Phase::Pending || !m_radio.isReady(state.managerPath)) {
        return;
    }
    if (m_isForWantOfRoom && !m_radio.hasFreeInstance(state.managerPath)) {
        scheduleRetry();
        return;
    }
    m_isRequested = false;
    m_isRefused = false;
    PLIM_LOG(plim::bleLogger(), INFO, Q_FUNC_INFO, "Register again: " << m_path);
    // What BlueZ has not got would be an error.
    if (state.phase == Phase::Registered ||
        state.errorName == QLatin1String("org.bluez.Error.AlreadyExists")) {
        BleManager::instance()->unregisterAdv(m_advertisement);
    }
    BleManager::instance()->registerAdv(m_advertisement);
}

void plim::detail::KeptAdvertisement::leaveAir(AdvertisingKeeper::Reason reason)
{
    if (m_isOnAir) {
        m_isOnAir = false;
        emit wentOffAir(reason);
    }
}
