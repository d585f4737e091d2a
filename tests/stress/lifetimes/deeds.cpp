#include "World.h"

#include "BleManager.h"

#include <QCoreApplication>
#include <QDBusObjectPath>
#include <QEventLoop>
#include <QTimer>

#include <stdexcept>

namespace {

QString uuid(int number)
{
    return QStringLiteral("0000a%1-0000-1000-8000-00805f9b34fb").arg(number, 3, 10, QLatin1Char('0'));
}

QVariantMap at(int offset)
{
    return {{QStringLiteral("offset"), offset}};
}

/** Now, or when control returns to the event loop. */
void end(World& world, QObject* object)
{
    if (!object) {
        return;
    }
    if (world.chance(4)) {
        object->deleteLater();
    } else {
        delete object;
    }
}

void createService(World& world)
{
    GattApplication* app = world.application();
    if (app && app->findChildren<GattService*>().size() < 4) {
        world.follow(app->createService(uuid(world.below(4)), world.chance(2)));
    }
}

void createCharacteristic(World& world)
{
    GattService* service = world.service();
    if (service && service->findChildren<GattCharacteristic*>().size() < 6) {
        // The control may be of another service or application, and may have lost its place to another one.
        GattCharacteristic* control = world.chance(2) ? world.characteristic() : nullptr;
        const auto option = GattCharacteristic::Option(1 + world.below(7));
        world.follow(service->createCharacteristic(uuid(100 + world.below(6)), option, control));
    }
}

void addDescriptor(World& world)
{
    GattCharacteristic* characteristic = world.characteristic();
    if (characteristic && characteristic->findChildren<GattDescriptor*>().size() < 3) {
        characteristic->addDescriptor(uuid(200 + world.below(3)), GattDescriptor::Option(1 + world.below(3)));
    }
}

void spin(World& world)
{
    if (!world.maySpin()) {
        return;
    }
    QEventLoop loop;
    QTimer::singleShot(0, &loop, [&world] { world.interfere(); });
    QTimer::singleShot(0, &loop, &QEventLoop::quit);
    loop.exec();
}

std::function<QByteArray()> callback(World& world)
{
    World* const w = &world;
    QByteArray answer = world.bytes();
    switch (world.below(6)) {
    case 0:
        return {};
    case 1:
        return [answer] { return answer; };
    case 2:
        return [w]() -> QByteArray {
            w->interfere();
            throw std::runtime_error("no sensor");
        };
    case 3:
        return [w, answer] {
            spin(*w);
            return answer;
        };
    case 4:
        return [w, answer] {
            end(*w, w->characteristic());
            return answer;
        };
    default:
        return [w, answer] {
            w->interfere();
            return answer;
        };
    }
}

void setCallback(World& world)
{
    if (GattCharacteristic* characteristic = world.characteristic()) {
        characteristic->setReadCallback(callback(world));
    }
    if (GattDescriptor* descriptor = world.descriptor()) {
        descriptor->setReadCallback(callback(world));
    }
}

void read(World& world)
{
    const int offset = world.chance(3) ? world.below(600) : 0;
    if (GattCharacteristic* characteristic = world.characteristic()) {
        characteristic->ReadValue(at(offset));
    }
    if (GattDescriptor* descriptor = world.descriptor()) {
        descriptor->ReadValue(at(offset));
    }
}

void write(World& world)
{
    if (GattCharacteristic* characteristic = world.characteristic()) {
        characteristic->WriteValue(world.bytes(), at(world.below(50)));
    }
    if (GattDescriptor* descriptor = world.descriptor()) {
        descriptor->WriteValue(world.bytes(), at(world.below(50)));
    }
}

void setValue(World& world)
{
    if (GattCharacteristic* characteristic = world.characteristic()) {
        characteristic->setValue(world.bytes());
    }
}

void switchNotification(World& world)
{
    if (GattCharacteristic* characteristic = world.characteristic()) {
        world.chance(3) ? characteristic->StopNotify() : characteristic->StartNotify();
    }
}

void askEverything(World& world)
{
    if (GattApplication* app = world.application()) {
        app->GetManagedObjects();
        app->problems();
    }
    if (GapAdvertisement* adv = world.advertisement()) {
        adv->problems();
    }
    if (GattCharacteristic* characteristic = world.characteristic()) {
        const QString interface = QStringLiteral("org.bluez.GattCharacteristic1");
        characteristic->GetAll(interface);
        characteristic->Get(interface, QStringLiteral("Service"));
        characteristic->Set(interface, QStringLiteral("Added"), QDBusVariant(world.below(5)));
        characteristic->Confirm();
        characteristic->service();
    }
    if (GattDescriptor* descriptor = world.descriptor()) {
        descriptor->characteristic();
    }
}

void changeAdvertisement(World& world)
{
    GapAdvertisement* adv = world.advertisement();
    if (!adv) {
        return;
    }
    const QVector<std::function<void()>> setters{
        [&] { adv->setAppearance(ushort(world.below(9))); },
        [&] { adv->setLocalName(QString::fromLatin1(world.bytes())); },
        [&] { adv->setIncludeTxPower(world.chance(2)); },
        [&] { adv->setServiceUUIDs({uuid(world.below(4))}); },
        [&] { adv->setSolicitUUIDs({uuid(world.below(4))}); },
        [&] {
            adv->setManufacturerData({{ushort(world.below(3)), world.bytes()}});
        },
        [&] {
            adv->setServiceData({{uuid(1), world.bytes()}});
        },
        [&] { adv->setAdvData(uchar(world.below(40)), world.bytes()); },
        [&] { adv->setScanRspData(world.bytes()); },
        [&] { adv->setType(GapAdvertisement::GapDeviceType(world.below(2))); },
        [&] { QMetaObject::invokeMethod(adv, "Release"); },
    };
    setters.at(world.below(int(setters.size())))();
}

void changeMood(World& world)
{
    static const char* const members[] = {"RegisterApplication", "UnregisterApplication",
                                          "RegisterAdvertisement", "UnregisterAdvertisement"};
    const QString member = QLatin1String(members[world.below(4)]);
    switch (world.below(4)) {
    case 0:
        world.daemon().neverAnswer(member);
        break;
    case 1:
        world.daemon().answerLate(member, uint(world.below(20)));
        break;
    case 2:
        world.daemon().answerWithError(member, QStringLiteral("org.bluez.Error.Failed"),
                                       QStringLiteral("No"));
        break;
    default:
        world.daemon().answerNormally(member);
    }
}

void askOverTheBus(World& world)
{
    const GattCharacteristic* characteristic = world.characteristic();
    if (!characteristic) {
        return;
    }
    const QString path = characteristic->dbusPath();
    const QString offset = QString::number(world.chance(3) ? world.below(600) : 0);
    const QStringList options{QStringLiteral("1"), QStringLiteral("offset"), QStringLiteral("q"), offset};
    switch (world.below(4)) {
    case 0:
        return world.ask(path, QStringLiteral("WriteValue"), QStringLiteral("aya{sv}"),
                         QStringList{QString::fromLatin1(world.bytes().toHex())} + options);
    case 1:
        return world.ask(path, QStringLiteral("StartNotify"), {}, {});
    case 2:
        return world.ask(path, QStringLiteral("StopNotify"), {}, {});
    default:
        return world.ask(path, QStringLiteral("ReadValue"), QStringLiteral("a{sv}"), options);
    }
}

/** The steps may be called for what is not held, too. */
void takeSteps(World& world)
{
    if (const GattApplication* app = world.application()) {
        BleManager::instance()->registerApp(app);
        BleManager::instance()->unregisterApp(app);
    }
    if (const GapAdvertisement* adv = world.advertisement()) {
        BleManager::instance()->registerAdv(adv);
        BleManager::instance()->unregisterAdv(adv);
    }
}

} // namespace

const QVector<Deed>& allDeeds()
{
    static const QVector<Deed> all{
        {"build an application", 5, [](World& world) { world.build(); }},
        {"create a service", 30, createService},
        {"create a characteristic", 60, createCharacteristic},
        {"add a descriptor", 40, addDescriptor},
        {"delete an application", 3, [](World& world) { end(world, world.application()); }},
        {"delete a service", 12, [](World& world) { end(world, world.service()); }},
        {"delete a characteristic", 30, [](World& world) { end(world, world.characteristic()); }},
        {"delete a descriptor", 20, [](World& world) { end(world, world.descriptor()); }},
        {"set a read callback", 60, setCallback},
        {"read", 150, read},
        {"write", 150, write},
        {"set a value", 80, setValue},
        {"switch notification", 40, switchNotification},
        {"ask everything", 40, askEverything},
        {"spin an event loop", 30, spin},
        {"ask over the bus", 60, askOverTheBus},
        {"advertise", 6, [](World& world) { world.advertise(); }},
        {"change an advertisement", 40, changeAdvertisement},
        {"delete an advertisement", 4, [](World& world) { end(world, world.advertisement()); }},
        {"hold an application", 4, [](World& world) { world.hold(world.application()); }},
        {"release an application", 4, [](World& world) { world.release(world.application()); }},
        {"hold an advertisement", 6, [](World& world) { world.hold(world.advertisement()); }},
        {"release an advertisement", 3, [](World& world) { world.release(world.advertisement()); }},
        {"take the steps directly", 6, takeSteps},
        {"change the daemon's mood", 4, changeMood},
        {"let the daemon come and go", 1, [](World& world) { world.comeAndGo(); }},
    };
    return all;
}
