// The commands for the advertisements of plim/peripheral, and for their keeper.

#include "Interpreter.h"

#include <plim/peripheral.h>

#include <QDBusConnection>
#include <QDBusMessage>
#include <QMetaEnum>
#include <QTimer>

namespace {

GapManufacturerData counted(quint16 number)
{
    return {{0xffff, QByteArray(1, char(number >> 8)) + char(number & 0xff)}};
}

} // namespace

void Interpreter::plimAdvertisement(const QStringList& words)
{
    m_objects[words.value(1)] = new plim::Advertisement(this, words.value(2));
}

void Interpreter::mode(const QStringList& words)
{
    find<plim::Advertisement>(words.value(1))
        ->setUpdateMode(words.value(2) == "in-place" ? plim::Advertisement::InPlace
                                                     : plim::Advertisement::RegisterAgain);
}

void Interpreter::setOwn(const QStringList& words)
{
    auto* advertisement = find<plim::Advertisement>(words.value(1));
    const QString property = words.value(2);
    const QStringList values = words.mid(3);
    if (property == "solicited") {
        advertisement->setSolicitedServices(values);
    } else if (property == "discoverable-timeout") {
        advertisement->setDiscoverableTimeout(values.value(0).toUShort());
    } else if (property == "duration") {
        advertisement->setDuration(values.value(0).toUShort());
    } else if (property == "secondary-channel") {
        advertisement->setSecondaryChannel(plim::Advertisement::Channel(values.value(0).toInt()));
    } else if (property == "includes") {
        advertisement->setSystemIncludes(plim::Advertisement::SystemIncludes(values.value(0).toInt()));
    } else if (property == "scan-manufacturer") {
        advertisement->setScanResponseManufacturerData({{0xffff, values.value(0).toLatin1()}});
    } else if (property == "scan-uuids") {
        advertisement->setScanResponseServiceUUIDs(values);
    } else {
        throw "the property " + property;
    }
}

void Interpreter::beacon(const QStringList& words)
{
    beaconOnce(words.value(1), 0, words.value(2).toUShort(), words.value(3).toInt());
}

void Interpreter::beaconOnce(const QString& name, quint16 number, quint16 last, int interval)
{
    find<plim::Advertisement>(name)->setManufacturerData(counted(number));
    if (number == last) {
        say("beacon " + name + " done");
        return;
    }
    QTimer::singleShot(interval, Qt::PreciseTimer, this,
                       [=] { beaconOnce(name, quint16(number + 1), last, interval); });
}

void Interpreter::announce(const QStringList& words)
{
    QDBusMessage signal = QDBusMessage::createSignal(find<GapAdvertisement>(words.value(1))->dbusPath(),
                                                     "org.freedesktop.DBus.Properties", "PropertiesChanged");
    signal << "org.bluez.LEAdvertisement1" << QVariantMap{{"LocalName", words.value(2)}} << QStringList();
    QDBusConnection::systemBus().send(signal);
}

void Interpreter::keepOnAir(const QStringList& words)
{
    const QString name = words.value(1);
    const auto* advertisement = find<GapAdvertisement>(name);
    auto* keeper = new plim::AdvertisingKeeper(this);
    keeper->setAfterTimeout(words.contains("after-timeout"));
    keeper->setWhileConnected(words.contains("while-connected"));
    connect(keeper, &plim::AdvertisingKeeper::onAir, this, [=] { say("onair " + name); });
    connect(keeper, &plim::AdvertisingKeeper::offAir, this,
            [=](const GapAdvertisement*, plim::AdvertisingKeeper::Reason reason) {
                const auto names = QMetaEnum::fromType<plim::AdvertisingKeeper::Reason>();
                say("offair " + name + ' ' + names.valueToKey(reason));
            });
    keeper->keep(advertisement);
}
