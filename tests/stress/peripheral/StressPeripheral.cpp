#include "StressPeripheral.h"

#include <QEventLoop>
#include <QPointer>
#include <QTimer>

#include <stdexcept>

namespace {

constexpr auto everything = GattCharacteristic::Read | GattCharacteristic::Write | GattCharacteristic::Notify;

} // namespace

StressPeripheral::StressPeripheral()
{
    add("plain")->setValue(QByteArray(700, 'p'));
    add("paged", add("control"))->setValue(QByteArray(1300, 'q'));
    add("throwing")->setReadCallback([]() -> QByteArray { throw std::runtime_error("no sensor"); });
    add("spinning")->setReadCallback([] {
        QEventLoop loop;
        QTimer::singleShot(0, &loop, &QEventLoop::quit);
        loop.exec();
        return QByteArray("spun");
    });
    addCounting();
    addMortals();
    for (const auto propertyExport : {GapAdvertisement::AllProperties, GapAdvertisement::SetProperties}) {
        auto* adv = new GapAdvertisement(this, QStringLiteral("/advertised%1").arg(int(propertyExport)),
                                         propertyExport);
        adv->setLocalName(QStringLiteral("peripheral"));
        adv->setManufacturerData({{1, "data"}});
    }
}

GattCharacteristic* StressPeripheral::add(const char* name, GattCharacteristic* control)
{
    GattCharacteristic* made = m_service->createCharacteristic(QLatin1String(name), everything, control);
    made->addDescriptor(QStringLiteral("described"), GattDescriptor::Read);
    return made;
}

/** Each read of "counted" gives the next number; "more", written with a number, notifies as many. */
void StressPeripheral::addCounting()
{
    GattCharacteristic* counted = add("counted");
    counted->setReadCallback([this] { return QByteArray::number(++m_reads); });
    GattCharacteristic* notified = add("notified");
    GattCharacteristic* more = add("more");
    connect(more, &GattCharacteristic::valueChanged, notified, [this, more, notified] {
        for (int left = more->value().toInt(); left > 0; --left) {
            notified->setValue(QByteArray::number(++m_notifications));
        }
    });
}

/** "mortal" and its service end with each write, and when they are read; both come back at once. */
void StressPeripheral::addMortals()
{
    QPointer<GattService> service = m_app.createService(QStringLiteral("mortals"), true);
    GattCharacteristic* mortal = service->createCharacteristic(QStringLiteral("mortal"), everything, nullptr);
    mortal->addDescriptor(QStringLiteral("described"), GattDescriptor::Read);
    const auto end = [service] { delete service; };
    connect(mortal, &GattCharacteristic::valueChanged, this, end);
    mortal->setReadCallback([end] {
        end();
        return QByteArray("last words");
    });
    connect(service, &QObject::destroyed, this, &StressPeripheral::addMortals, Qt::QueuedConnection);
}
