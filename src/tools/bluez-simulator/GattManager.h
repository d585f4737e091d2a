#pragma once

#include "HandleTable.h"
#include "RegistrationManager.h"

namespace simulator {

/** Plays org.bluez.GattManager1. */
class GattManager : public RegistrationManager
{
    Q_OBJECT

public:
    GattManager(const QString& path, Daemon* daemon);

protected:
    QDBusMessage readRequest(const Registration& registration) const override;
    Refusal judge(Registration& registration, const QDBusMessage& answer) const override;
    void onRegistered(const Registration& registration) override;
    void onRemoved(const Registration& registration) override;

private:
    HandleTable m_handles;
};

} // namespace simulator
