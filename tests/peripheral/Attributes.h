#pragma once

#include "Eventually.h"
#include "GattApplication.h"
#include "Literals.h"
#include "RawBusClient.h"

#include <plim/peripheral.h>

#include <QStringList>
#include <QtTest>

#include <memory>

/** Two centrals by the paths of their objects. */
inline const QString phonePath = QStringLiteral("/org/bluez/hci0/dev_00_AA_01_01_00_01");
inline const QString tabletPath = QStringLiteral("/org/bluez/hci0/dev_00_AA_01_01_00_02");

/** An application with one service and one characteristic of the layer, and one descriptor below it. */
struct Attributes
{
    explicit Attributes(const plim::Access& access = plim::Access().read().write().notify())
        : app(std::make_unique<GattApplication>(nullptr, "/app"_qs, "org.example.Peripheral"_qs)),
          service(plim::Service::create(app.get(), "aaaa"_qs)),
          characteristic(plim::Characteristic::create(service, "c0"_qs, access)),
          descriptor(plim::Descriptor::create(characteristic, "d0"_qs, plim::Access().read().write()))
    {
    }

    std::unique_ptr<GattApplication> app;
    plim::Service* service;
    plim::Characteristic* characteristic;
    plim::Descriptor* descriptor;
};

/** Reads and writes are answered alike; each row runs for both. */
inline void addAttributes()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("characteristic") << "/app/aaaa/c0"_qs;
    QTest::newRow("descriptor") << "/app/aaaa/c0/d0"_qs;
}

/** A process that calls as BlueZ does. */
class Caller : public RawBusClient
{
public:
    static QStringList options(int offset = 0, const QString& device = phonePath)
    {
        QStringList entries{"device"_qs, "o"_qs,   device, "link"_qs, "s"_qs,
                            "LE"_qs,     "mtu"_qs, "q"_qs, "517"_qs};
        if (offset != 0) {
            entries << "offset"_qs
                    << "q"_qs << QString::number(offset);
        }
        entries.prepend(QString::number(entries.size() / 3));
        return entries;
    }

    int startRead(const QString& path, const QStringList& options = Caller::options())
    {
        return start({path, interfaceOf(path), "ReadValue"_qs, "a{sv}"_qs, options});
    }
    BusMessage read(const QString& path, const QStringList& options = Caller::options())
    {
        return answer(startRead(path, options));
    }
    int startWrite(const QString& path, const QByteArray& value,
                   const QStringList& options = Caller::options())
    {
        return start(write_(path, value, options));
    }
    BusMessage write(const QString& path, const QByteArray& value,
                     const QStringList& options = Caller::options())
    {
        return answer(startWrite(path, value, options));
    }
    /** A write that wants no answer; it has been handled on return. */
    void writeWithoutReply(const QString& path, const QByteArray& value)
    {
        BusCall call = write_(path, value, options());
        call.noReply = true;
        this->call(call);
        ping();
    }
    BusMessage plainCall(const QString& path, const char* member)
    {
        return call(path, interfaceOf(path), QString::fromLatin1(member));
    }
    BusMessage acquireNotify(const QString& path, const QString& device)
    {
        return call(path, interfaceOf(path), "AcquireNotify"_qs, "a{sv}"_qs, options(0, device));
    }

private:
    static QString interfaceOf(const QString& path)
    {
        return path.count(QLatin1Char('/')) > 3 ? "org.bluez.GattDescriptor1"_qs
                                                : "org.bluez.GattCharacteristic1"_qs;
    }
    static BusCall write_(const QString& path, const QByteArray& value, const QStringList& options)
    {
        return {path, interfaceOf(path), "WriteValue"_qs, "aya{sv}"_qs,
                QStringList{QString::fromLatin1(value.toHex())} + options};
    }
};

/** What an answer says: "method_return", or the error's name without what all have in common, and its text.
 */
inline QString outcome(const BusMessage& message)
{
    return message.isError() ? QString(message.errorName).remove("org.bluez.Error."_qs) + QLatin1Char(' ') +
                                   message.errorText
                             : message.type;
}
