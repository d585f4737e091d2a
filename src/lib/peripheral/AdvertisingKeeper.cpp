#include "AdvertisingKeeper.h"

#include "BleRegistration.h"
#include "GapAdvertisement.h"
#include "KeptAdvertisement.h"
#include "RadioWatch.h"
#include "RegistrationNews.h"
#include "plim.h"
#include "plimlog.h"

#include <QList>
#include <QPointer>

#include <utility>

plim::AdvertisingKeeper::AdvertisingKeeper(QObject* parent) : QObject(parent), m_radio(new detail::RadioWatch)
{
    using detail::RadioWatch;
    const RadioWatch* radio = m_radio.get();
    plim::connect(radio, &RadioWatch::powerChanged, this, [this](const QString& adapter) {
        forEach([&](Kept& kept) {
            if (kept.adapter() == adapter) {
                followRadio(kept, PoweredOff);
            }
        });
    });
    plim::connect(radio, &RadioWatch::sleepChanged, this,
                  [this] { forEach([this](Kept& kept) { followRadio(kept, Suspended); }); });
    plim::connect(radio, &RadioWatch::connected, this, &AdvertisingKeeper::on_connected);
    plim::connect(radio, &RadioWatch::instanceFreed, this, [this](const QString& adapter) {
        forEach([&](Kept& kept) {
            if (kept.adapter() == adapter) {
                kept.roomAppeared();
            }
        });
    });
    plim::connect(
        RegistrationNews::instance(), &RegistrationNews::happened, this,
        [this](const BleRegistrationEvent& event) { forEach([&](Kept& kept) { kept.handle(event); }); });
}

plim::AdvertisingKeeper::~AdvertisingKeeper()
{
    // They use the radio's watch.
    qDeleteAll(m_kept);
}

void plim::AdvertisingKeeper::keep(const GapAdvertisement* advertisement)
{
    if (!advertisement) {
        PLIM_LOG(plim::bleLogger(), ERROR, Q_FUNC_INFO, "Cannot keep a null advertisement");
        return;
    }
    if (m_kept.contains(advertisement)) {
        return;
    }
    auto* kept = new Kept(advertisement, *m_radio, this);
    kept->setAfterTimeout(m_isAfterTimeout);
    m_kept.insert(advertisement, kept);
    plim::connect(kept, &Kept::wentOnAir, this, [this, advertisement] { emit onAir(advertisement); });
    plim::connect(kept, &Kept::wentOffAir, this,
                  [this, advertisement](Reason reason) { emit offAir(advertisement, reason); });
    // The deleted object is not asked any more; its address may soon be another one's.
    plim::connect(advertisement, &QObject::destroyed, kept, [this, advertisement] { leave(advertisement); });
}

void plim::AdvertisingKeeper::leave(const GapAdvertisement* advertisement)
{
    Kept* kept = m_kept.take(advertisement);
    if (kept) {
        // Not at once: one of its signals may have led here.
        kept->disconnect();
        kept->stop();
        kept->deleteLater();
    }
}

void plim::AdvertisingKeeper::setAfterTimeout(bool again)
{
    m_isAfterTimeout = again;
    for (Kept* kept : std::as_const(m_kept)) {
        kept->setAfterTimeout(again);
    }
}

void plim::AdvertisingKeeper::setWhileConnected(bool again)
{
    m_isWhileConnected = again;
}

bool plim::AdvertisingKeeper::isOnAir(const GapAdvertisement* advertisement) const
{
    const Kept* kept = m_kept.value(advertisement);
    return kept && kept->isOnAir();
}

/** Calls a function, which may end this or any of them, for each kept advertisement. */
void plim::AdvertisingKeeper::forEach(const std::function<void(Kept&)>& function)
{
    QList<QPointer<Kept>> all;
    for (Kept* kept : std::as_const(m_kept)) {
        all << kept;
    }
    for (const QPointer<Kept>& kept : std::as_const(all)) {
        // As long as one is there, its keeper is.
        if (kept && m_kept.key(kept)) {
            function(*kept);
        }
    }
}

/** By the present state: in the event loop of a slot that was called before, it may have changed again. */
void plim::AdvertisingKeeper::followRadio(Kept& kept, Reason reason) const
{
    const bool isReady = reason == Suspended ? !m_radio->isAsleep() : m_radio->isPowered(kept.adapter());
    isReady ? kept.request() : kept.interrupt(reason);
}

void plim::AdvertisingKeeper::on_connected(const QString& device)
{
    if (!m_isWhileConnected) {
        return;
    }
    forEach([&](Kept& kept) {
        if (kept.isRegistered() && kept.isConnectable() &&
            device.startsWith(kept.adapter() + QLatin1Char('/'))) {
            kept.request();
        }
    });
}
