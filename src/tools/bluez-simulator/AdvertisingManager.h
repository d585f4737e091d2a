#pragma once

#include "RegistrationManager.h"

namespace simulator {

/** Plays org.bluez.LEAdvertisingManager1. */
class AdvertisingManager : public RegistrationManager
{
    Q_OBJECT

public:
    AdvertisingManager(const QString& path, Daemon* daemon);

    /** Ends an advertisement from the daemon's side and tells its client; false when there is none at that
     * path. */
    bool release(const QString& advertisement);

    /** Takes in a change that a client has announced for its advertisement. */
    void update(const QString& sender, const QString& advertisement, const QVariantMap& changed);

    /** The adapter was switched on or off. With extended advertising, nothing is broadcast after that until
     * it is registered or changed. */
    void setPowered(bool isPowered);

    void dropAll() override;

    /** The properties of an advertisement as read. */
    static QVariantMap properties(const Registration& registration);

    /** The properties of the manager itself while so many advertisements are active. */
    static QVariantMap managerProperties(int active);

protected:
    Refusal admission() const override;
    QDBusMessage readRequest(const Registration& registration) const override;
    Refusal judge(Registration& registration, const QDBusMessage& answer) const override;
    void onRegistered(const Registration& registration) override;
    void onRemoved(const Registration& registration) override;

private:
    Refusal judgeProperties(const QVariantMap& properties) const;
    void sendRelease(const Registration& registration) const;
    void releaseById(quint64 id);
    void showInstances();
    bool isPowered() const;
};

} // namespace simulator
