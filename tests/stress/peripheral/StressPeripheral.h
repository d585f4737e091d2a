#pragma once

#include "GapAdvertisement.h"
#include "GattApplication.h"

#include <QObject>

/**
 * What is exported to be called: below /stress one characteristic for each way to answer, an advertisement
 * of either kind at /advertised0 and /advertised1.
 */
class StressPeripheral : public QObject
{
    Q_OBJECT

public:
    StressPeripheral();

private:
    GattCharacteristic* add(const char* name, GattCharacteristic* control = nullptr);
    void addCounting();
    void addMortals();

    GattApplication m_app{this, QStringLiteral("/stress"), QStringLiteral("org.plim.stress")};
    GattService* m_service = m_app.createService(QStringLiteral("values"), true);
    qint64 m_reads = 0;
    qint64 m_notifications = 0;
};
