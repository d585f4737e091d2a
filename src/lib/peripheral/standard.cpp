#include "standard.h"

#include "AttLimits.h"
#include "Characteristic.h"
#include "Descriptor.h"
#include "Service.h"

#include "GattApplication.h"
#include "plimlog.h"

#include <QPointer>
#include <QTimeZone>
#include <QtEndian>

#include <algorithm>

namespace {

template <typename Number>
void append(QByteArray& bytes, Number number)
{
    const Number little = qToLittleEndian(number);
    bytes.append(reinterpret_cast<const char*>(&little), int(sizeof little));
}

/** The text in UTF-8, without what an attribute does not hold. */
QByteArray attributeText(const QString& text)
{
    QByteArray bytes = text.toUtf8();
    if (bytes.size() <= plim::detail::maximumAttributeSize) {
        return bytes;
    }
    PLIM_LOG(plim::bleLogger(), WARN, Q_FUNC_INFO,
             "A text of " << bytes.size() << " bytes is cut off: an attribute holds "
                          << plim::detail::maximumAttributeSize);
    int end = plim::detail::maximumAttributeSize;
    while ((uchar(bytes.at(end)) & 0xc0) == 0x80) {
        --end; // inside a character
    }
    bytes.truncate(end);
    return bytes;
}

/** A descriptor that is only read, with this value; the one that is there already, if it is. */
plim::Descriptor* setDescriptor(GattCharacteristic* characteristic, quint16 assigned, const QByteArray& value)
{
    const QString uuid = plim::uuid(assigned);
    const QList<GattDescriptor*> all = characteristic->descriptors();
    const auto there = std::find_if(all.cbegin(), all.cend(), [&uuid](const GattDescriptor* one) {
        return one->uuid() == uuid && qobject_cast<const plim::Descriptor*>(one);
    });
    const QPointer<plim::Descriptor> descriptor =
        there == all.cend() ? plim::Descriptor::create(characteristic, uuid, plim::Access().read())
                            : qobject_cast<plim::Descriptor*>(*there);
    if (descriptor) {
        descriptor->WriteValue(value, {});
    }
    return descriptor.data();
}

/** A characteristic that is only read, unless its value is empty. @param service  null if a slot of the
 * program has deleted it */
void addValue(plim::Service* service, quint16 assigned, const QByteArray& value)
{
    if (value.isEmpty() || !service) {
        return;
    }
    auto* characteristic = plim::Characteristic::create(service, plim::uuid(assigned), plim::Access().read());
    if (characteristic) {
        characteristic->setValue(value);
    }
}

QByteArray bytesOf(const plim::PnpId& id)
{
    QByteArray bytes;
    append(bytes, quint8(id.source));
    append(bytes, id.vendor);
    append(bytes, id.product);
    append(bytes, id.version);
    return bytes;
}

/** Exact Time 256 and the reasons for the last change. An invalid time is all zeros, which means unknown. */
QByteArray currentTimeOf(const QDateTime& time, quint8 changes)
{
    const QDate date = time.isValid() ? time.date() : QDate(0, 0, 0);
    const QTime clock = time.isValid() ? time.time() : QTime(0, 0);
    QByteArray bytes;
    append(bytes, quint16(date.year()));
    append(bytes, quint8(date.month()));
    append(bytes, quint8(date.day()));
    append(bytes, quint8(clock.hour()));
    append(bytes, quint8(clock.minute()));
    append(bytes, quint8(clock.second()));
    append(bytes, quint8(date.dayOfWeek())); // 1 is Monday, as for the SIG
    append(bytes, quint8(clock.msec() * 256 / 1000));
    append(bytes, changes);
    return bytes;
}

/** The time zone in quarters of an hour, and what daylight saving adds to it. */
QByteArray localTimeInformationOf(const QDateTime& time)
{
    constexpr quint8 unknownDaylightSaving = 0xff;
    const QTimeZone zone = time.timeZone();
    const bool isKnown = zone.isValid();
    const int standard = isKnown ? zone.standardTimeOffset(time) : time.offsetFromUtc();
    const int saving = isKnown ? zone.daylightTimeOffset(time) : 0;
    const bool isDefined = saving == 0 || saving == 1800 || saving == 3600 || saving == 7200;
    QByteArray bytes;
    append(bytes, qint8(standard / 900));
    append(bytes, isKnown && isDefined ? quint8(saving / 900) : unknownDaylightSaving);
    return bytes;
}

} // namespace

QString plim::uuid(quint16 assigned)
{
    return QStringLiteral("0000%1-0000-1000-8000-00805f9b34fb").arg(assigned, 4, 16, QLatin1Char('0'));
}

plim::Descriptor* plim::describe(GattCharacteristic* characteristic, const QString& text)
{
    return setDescriptor(characteristic, 0x2901, attributeText(text));
}

plim::Descriptor* plim::setFormat(GattCharacteristic* characteristic, const Format& format)
{
    constexpr quint8 namespaceOfTheSig = 1;
    QByteArray bytes;
    append(bytes, quint8(format.type));
    append(bytes, format.exponent);
    append(bytes, quint16(format.unit));
    append(bytes, namespaceOfTheSig);
    append(bytes, format.description);
    return setDescriptor(characteristic, 0x2904, bytes);
}

plim::Service* plim::addDeviceInformation(GattApplication* application, const DeviceInformation& values)
{
    const QPointer<Service> service = Service::create(application, uuid(0x180a));
    addValue(service, 0x2a29, attributeText(values.manufacturer));
    addValue(service, 0x2a24, attributeText(values.model));
    addValue(service, 0x2a25, attributeText(values.serialNumber));
    addValue(service, 0x2a27, attributeText(values.hardwareRevision));
    addValue(service, 0x2a26, attributeText(values.firmwareRevision));
    addValue(service, 0x2a28, attributeText(values.softwareRevision));
    if (values.systemId.isEmpty() || values.systemId.size() == 8) {
        addValue(service, 0x2a23, values.systemId);
    } else {
        PLIM_LOG(bleLogger(), ERROR, Q_FUNC_INFO,
                 "The system ID is left out: it has " << values.systemId.size() << " bytes instead of 8");
    }
    if (values.pnpId) {
        addValue(service, 0x2a50, bytesOf(*values.pnpId));
    }
    return service;
}

plim::Characteristic* plim::addBattery(GattApplication* application, int percent, const QString& pathElement)
{
    Service* service = Service::create(application, uuid(0x180f), true, pathElement);
    const QPointer<Characteristic> level =
        service ? Characteristic::create(service, uuid(0x2a19), Access().read().notify()) : nullptr;
    if (level) {
        setBatteryLevel(level, percent);
        setFormat(level, {Format::UInt8, Unit::Percent});
    }
    return level;
}

void plim::setBatteryLevel(Characteristic* batteryLevel, int percent)
{
    batteryLevel->setValue(QByteArray(1, char(qBound(0, percent, 100))));
}

plim::Characteristic* plim::addCurrentTime(GattApplication* application,
                                           const std::function<QDateTime()>& clock)
{
    const std::function<QDateTime()> now = clock ? clock : [] { return QDateTime::currentDateTime(); };
    const QPointer<Service> service = Service::create(application, uuid(0x1805));
    const QPointer<Characteristic> time =
        service ? Characteristic::create(service, uuid(0x2a2b), Access().read().notify()) : nullptr;
    const QPointer<Characteristic> zone =
        service ? Characteristic::create(service, uuid(0x2a0f), Access().read()) : nullptr;
    const QByteArray first = currentTimeOf(now(), 0);
    if (!time || !zone) {
        return nullptr;
    }
    // Its own value is what was notified last; the reason is its last byte.
    time->setValue(first);
    time->setReadHandler([now, time](const ReadRequest& request) {
        const QByteArray notified = time->value();
        request.accept(currentTimeOf(now(), notified.isEmpty() ? 0 : quint8(notified.back())));
    });
    zone->setReadHandler(
        [now](const ReadRequest& request) { request.accept(localTimeInformationOf(now())); });
    return time;
}

void plim::notifyTime(Characteristic* currentTime, const QDateTime& now, TimeChanges changes)
{
    currentTime->setValue(currentTimeOf(now, quint8(changes)));
}
