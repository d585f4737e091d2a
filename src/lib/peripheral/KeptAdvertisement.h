#pragma once

#include "AdvertisingKeeper.h"

#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

class GapAdvertisement;
struct BleRegistrationEvent;

namespace plim {
namespace detail {

class RadioWatch;

/**
 * One advertisement of a keeper: what it is waiting for, and when it is registered again. Internal: not
 * installed.
 *
 * Its signals may end it: nothing follows them.
 */
class KeptAdvertisement : public QObject
{
    Q_OBJECT

public:
    /** @param keeper  owns it */
    KeptAdvertisement(const GapAdvertisement* advertisement, const RadioWatch& radio, QObject* keeper);

    bool isOnAir() const { return m_isOnAir; }

    /** The object path of the adapter that was asked; empty where none was. */
    QString adapter() const;
    /** Whether BlueZ counts it as registered. */
    bool isRegistered() const;
    /** Whether centrals can connect to it. */
    bool isConnectable() const;

    /** It has to be registered again, unless the program or a time-out has ended it. */
    void request();
    /** Its adapter went off, or the machine to sleep. */
    void interrupt(AdvertisingKeeper::Reason reason);
    /** There is room for another advertisement. */
    void roomAppeared();
    /** Whether it is registered again after a time-out. */
    void setAfterTimeout(bool again) { m_isAfterTimeout = again; }

    void handle(const BleRegistrationEvent& event);
    /** Does nothing any more. */
    void stop();

signals:
    void wentOnAir();
    void wentOffAir(plim::AdvertisingKeeper::Reason reason);

private:
    void start();
    void onAccepted();
    void onRefused();
    void onReleased();
    void onChanged();
    void schedule(int milliseconds);
    void scheduleRetry();
    void registerAgain();
    void leaveAir(AdvertisingKeeper::Reason reason);

    const QPointer<const GapAdvertisement> m_advertisement;
    const QString m_path;
    const RadioWatch& m_radio;
    QTimer m_timer;
    bool m_isOnAir = false;
    bool m_isRequested = false;     ///< there is a cause that no registration has followed
    bool m_isRefused = false;       ///< to be tried again
    bool m_isForWantOfRoom = false; ///< that is why it was refused
    bool m_isEnded = false;         ///< by the program, or by a time-out that is to end it
    bool m_isAfterTimeout = false;
    int m_failures = 0; ///< in a row
};

} // namespace detail
} // namespace plim
