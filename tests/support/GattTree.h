#pragma once

#include "GattApplication.h"
#include "GattCharacteristic.h"
#include "GattDescriptor.h"
#include "GattService.h"
#include "Literals.h"

#include <memory>

// So that a QSignalSpy can record the argument of applicationChanged().
Q_DECLARE_METATYPE(const GattApplication*)
inline const int gattApplicationType = qRegisterMetaType<const GattApplication*>("const GattApplication*");

constexpr auto readWrite = GattCharacteristic::Read | GattCharacteristic::Write;
constexpr auto readWriteNotify = readWrite | GattCharacteristic::Notify;
constexpr auto descriptorReadWrite = GattDescriptor::Read | GattDescriptor::Write;

inline QString serviceInterface()
{
    return "org.bluez.GattService1"_qs;
}

inline QString characteristicInterface()
{
    return "org.bluez.GattCharacteristic1"_qs;
}

inline QString descriptorInterface()
{
    return "org.bluez.GattDescriptor1"_qs;
}

inline QString propertiesInterface()
{
    return "org.freedesktop.DBus.Properties"_qs;
}

/** The options with which BlueZ reads and writes at an offset. */
inline QVariantMap at(const QVariant& offset)
{
    return {{"offset"_qs, offset}};
}

/** Bytes of which each shows its position: 00 00, 00 01, 00 02, … */
inline QByteArray numberedBytes(int size)
{
    QByteArray bytes;
    for (int i = 0; i < size; ++i) {
        bytes.append(char((i / 2 >> (i % 2 ? 0 : 8)) & 0xff));
    }
    return bytes;
}

/** The texts of findings. */
inline QStringList texts(const BleFindings& findings)
{
    QStringList all;
    for (const BleFinding& finding : findings) {
        all << finding.text();
    }
    return all;
}

/** A tree with one of everything, below /app. */
struct GattTree
{
    std::unique_ptr<GattApplication> app =
        std::make_unique<GattApplication>(nullptr, "/app"_qs, "org.example.Peripheral"_qs);
    GattService* service = app->createService("aaaa-bbbb"_qs, true);
    GattCharacteristic* control = service->createCharacteristic("c0"_qs, readWrite, nullptr);
    /** The long value that the control pages through. */
    GattCharacteristic* paged = service->createCharacteristic("d0-1"_qs, readWriteNotify, control);
    GattCharacteristic* plain = service->createCharacteristic("e0"_qs, readWriteNotify, nullptr);
    GattDescriptor* descriptor = plain->addDescriptor("2901"_qs, descriptorReadWrite);
};
