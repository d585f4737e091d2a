#pragma once

#include "BleManager.h"
#include "GattApplication.h"

/** The peripheral under test: a temperature and its unit. */
class Thermometer
{
public:
    static QString serviceUuid() { return QStringLiteral("c0de0001-5f2a-4d6b-9a57-1f6d0a3b0006"); }
    static QString temperatureUuid() { return QStringLiteral("c0de0002-5f2a-4d6b-9a57-1f6d0a3b0006"); }
    static QString unitUuid() { return QStringLiteral("c0de0003-5f2a-4d6b-9a57-1f6d0a3b0006"); }

    Thermometer()
    {
        m_unit->setValue("C");
        measured(20);
        QObject::connect(m_unit, &GattCharacteristic::valueChanged, m_unit, [this] {
            if (m_unit->value() != "F") {
                m_unit->setValue("C");
            }
            measured(m_celsius);
        });
        BleManager::instance()->add(&m_app);
    }

    void measured(double celsius)
    {
        m_celsius = celsius;
        const double shown = m_unit->value() == "F" ? celsius * 9 / 5 + 32 : celsius;
        m_temperature->setValue(QByteArray::number(shown, 'f', 1));
    }

private:
    using Char = GattCharacteristic;

    double m_celsius = 0;
    GattApplication m_app{nullptr, "/com/example/thermometer", "com.example.Thermometer"};
    GattService* m_service = m_app.createService(serviceUuid(), true);
    Char* m_temperature = m_service->createCharacteristic(temperatureUuid(), Char::Read | Char::Notify);
    Char* m_unit = m_service->createCharacteristic(unitUuid(), Char::Read | Char::Write);
};
