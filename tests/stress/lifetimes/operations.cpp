#include "RandomLifetimes.h"

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
void end(RandomLifetimes& lifetimes, QObject* object)
{
    if (!object) {
        return;
    }
    if (lifetimes.chance(4)) {
        object->deleteLater();
    } else {
        delete object;
    }
}

void createService(RandomLifetimes& lifetimes)
{
    GattApplication* app = lifetimes.application();
    if (app && app->findChildren<GattService*>().size() < 4) {
        lifetimes.follow(app->createService(uuid(lifetimes.below(4)), lifetimes.chance(2)));
    }
}

void createCharacteristic(RandomLifetimes& lifetimes)
{
    GattService* service = lifetimes.service();
    if (service && service->findChildren<GattCharacteristic*>().size() < 6) {
        // The control may be of another service or application, and may have lost its place to another one.
        GattCharacteristic* control = lifetimes.chance(2) ? lifetimes.characteristic() : nullptr;
        const auto option = GattCharacteristic::Option(1 + lifetimes.below(7));
        lifetimes.follow(service->createCharacteristic(uuid(100 + lifetimes.below(6)), option, control));
    }
}

void addDescriptor(RandomLifetimes& lifetimes)
{
    GattCharacteristic* characteristic = lifetimes.characteristic();
    if (characteristic && characteristic->findChildren<GattDescriptor*>().size() < 3) {
        characteristic->addDescriptor(uuid(200 + lifetimes.below(3)),
                                      GattDescriptor::Option(1 + lifetimes.below(3)));
    }
}

void spin(RandomLifetimes& lifetimes)
{
    if (!lifetimes.maySpin()) {
        return;
    }
    QEventLoop loop;
    QTimer::singleShot(0, &loop, [&lifetimes] { lifetimes.interfere(); });
    QTimer::singleShot(0, &loop, &QEventLoop::quit);
    loop.exec();
}

std::function<QByteArray()> callback(RandomLifetimes& lifetimes)
{
    RandomLifetimes* const w = &lifetimes;
    QByteArray answer = lifetimes.bytes();
    switch (lifetimes.below(6)) {
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

void setCallback(RandomLifetimes& lifetimes)
{
    if (GattCharacteristic* characteristic = lifetimes.characteristic()) {
        characteristic->setReadCallback(callback(lifetimes));
    }
    if (GattDescriptor* descriptor = lifetimes.descriptor()) {
        descriptor->setReadCallback(callback(lifetimes));
    }
}

void readValue(RandomLifetimes& lifetimes)
{
    const int offset = lifetimes.chance(3) ? lifetimes.below(600) : 0;
    if (GattCharacteristic* characteristic = lifetimes.characteristic()) {
        characteristic->ReadValue(at(offset));
    }
    if (GattDescriptor* descriptor = lifetimes.descriptor()) {
        descriptor->ReadValue(at(offset));
    }
}

void writeValue(RandomLifetimes& lifetimes)
{
    if (GattCharacteristic* characteristic = lifetimes.characteristic()) {
        characteristic->WriteValue(lifetimes.bytes(), at(lifetimes.below(50)));
    }
    if (GattDescriptor* descriptor = lifetimes.descriptor()) {
        descriptor->WriteValue(lifetimes.bytes(), at(lifetimes.below(50)));
    }
}

void setValue(RandomLifetimes& lifetimes)
{
    if (GattCharacteristic* characteristic = lifetimes.characteristic()) {
        characteristic->setValue(lifetimes.bytes());
    }
}

void switchNotification(RandomLifetimes& lifetimes)
{
    if (GattCharacteristic* characteristic = lifetimes.characteristic()) {
        lifetimes.chance(3) ? characteristic->StopNotify() : characteristic->StartNotify();
    }
}

void askEverything(RandomLifetimes& lifetimes)
{
    if (GattApplication* app = lifetimes.application()) {
        app->GetManagedObjects();
        app->problems();
    }
    if (GapAdvertisement* adv = lifetimes.advertisement()) {
        adv->problems();
    }
    if (GattCharacteristic* characteristic = lifetimes.characteristic()) {
        const QString interface = QStringLiteral("org.bluez.GattCharacteristic1");
        characteristic->GetAll(interface);
        characteristic->Get(interface, QStringLiteral("Service"));
        characteristic->Set(interface, QStringLiteral("Added"), QDBusVariant(lifetimes.below(5)));
        characteristic->Confirm();
        characteristic->service();
    }
    if (GattDescriptor* descriptor = lifetimes.descriptor()) {
        descriptor->characteristic();
    }
}

void changeAdvertisement(RandomLifetimes& lifetimes)
{
    GapAdvertisement* adv = lifetimes.advertisement();
    if (!adv) {
        return;
    }
    const QVector<std::function<void()>> setters{
        [&] { adv->setAppearance(ushort(lifetimes.below(9))); },
        [&] { adv->setLocalName(QString::fromLatin1(lifetimes.bytes())); },
        [&] { adv->setIncludeTxPower(lifetimes.chance(2)); },
        [&] { adv->setServiceUUIDs({uuid(lifetimes.below(4))}); },
        [&] { adv->setSolicitUUIDs({uuid(lifetimes.below(4))}); },
        [&] {
            adv->setManufacturerData({{ushort(lifetimes.below(3)), lifetimes.bytes()}});
        },
        [&] {
            adv->setServiceData({{uuid(1), lifetimes.bytes()}});
        },
        [&] { adv->setAdvData(uchar(lifetimes.below(40)), lifetimes.bytes()); },
        [&] { adv->setScanRspData(lifetimes.bytes()); },
        [&] { adv->setType(GapAdvertisement::GapDeviceType(lifetimes.below(2))); },
        [&] { QMetaObject::invokeMethod(adv, "Release"); },
    };
    setters.at(lifetimes.below(int(setters.size())))();
}

void changeAnswers(RandomLifetimes& lifetimes)
{
    static const char* const members[] = {"RegisterApplication", "UnregisterApplication",
                                          "RegisterAdvertisement", "UnregisterAdvertisement"};
    const QString member = QLatin1String(members[lifetimes.below(4)]);
    switch (lifetimes.below(4)) {
    case 0:
        lifetimes.daemon().neverAnswer(member);
        break;
    case 1:
        lifetimes.daemon().answerLate(member, uint(lifetimes.below(20)));
        break;
    case 2:
        lifetimes.daemon().answerWithError(member, QStringLiteral("org.bluez.Error.Failed"),
                                           QStringLiteral("No"));
        break;
    default:
        lifetimes.daemon().answerNormally(member);
    }
}

void askOverTheBus(RandomLifetimes& lifetimes)
{
    const GattCharacteristic* characteristic = lifetimes.characteristic();
    if (!characteristic) {
        return;
    }
    const QString path = characteristic->dbusPath();
    const QString offset = QString::number(lifetimes.chance(3) ? lifetimes.below(600) : 0);
    const QStringList options{QStringLiteral("1"), QStringLiteral("offset"), QStringLiteral("q"), offset};
    switch (lifetimes.below(4)) {
    case 0:
        return lifetimes.ask(path, QStringLiteral("WriteValue"), QStringLiteral("aya{sv}"),
                             QStringList{QString::fromLatin1(lifetimes.bytes().toHex())} + options);
    case 1:
        return lifetimes.ask(path, QStringLiteral("StartNotify"), {}, {});
    case 2:
        return lifetimes.ask(path, QStringLiteral("StopNotify"), {}, {});
    default:
        return lifetimes.ask(path, QStringLiteral("ReadValue"), QStringLiteral("a{sv}"), options);
    }
}

/** The steps may be called for what is not held, too. */
void takeSteps(RandomLifetimes& lifetimes)
{
    if (const GattApplication* app = lifetimes.application()) {
        BleManager::instance()->registerApp(app);
        BleManager::instance()->unregisterApp(app);
    }
    if (const GapAdvertisement* adv = lifetimes.advertisement()) {
        BleManager::instance()->registerAdv(adv);
        BleManager::instance()->unregisterAdv(adv);
    }
}

} // namespace

const QVector<Operation>& allOperations()
{
    static const QVector<Operation> all{
        {"build an application", 5, [](RandomLifetimes& lifetimes) { lifetimes.build(); }},
        {"create a service", 30, createService},
        {"create a characteristic", 60, createCharacteristic},
        {"add a descriptor", 40, addDescriptor},
        {"delete an application", 3,
         [](RandomLifetimes& lifetimes) { end(lifetimes, lifetimes.application()); }},
        {"delete a service", 12, [](RandomLifetimes& lifetimes) { end(lifetimes, lifetimes.service()); }},
        {"delete a characteristic", 30,
         [](RandomLifetimes& lifetimes) { end(lifetimes, lifetimes.characteristic()); }},
        {"delete a descriptor", 20,
         [](RandomLifetimes& lifetimes) { end(lifetimes, lifetimes.descriptor()); }},
        {"set a read callback", 60, setCallback},
        {"read", 150, readValue},
        {"write", 150, writeValue},
        {"set a value", 80, setValue},
        {"switch notification", 40, switchNotification},
        {"ask everything", 40, askEverything},
        {"spin an event loop", 30, spin},
        {"ask over the bus", 60, askOverTheBus},
        {"advertise", 6, [](RandomLifetimes& lifetimes) { lifetimes.advertise(); }},
        {"change an advertisement", 40, changeAdvertisement},
        {"delete an advertisement", 4,
         [](RandomLifetimes& lifetimes) { end(lifetimes, lifetimes.advertisement()); }},
        {"hold an application", 4,
         [](RandomLifetimes& lifetimes) { lifetimes.hold(lifetimes.application()); }},
        {"release an application", 4,
         [](RandomLifetimes& lifetimes) { lifetimes.release(lifetimes.application()); }},
        {"hold an advertisement", 6,
         [](RandomLifetimes& lifetimes) { lifetimes.hold(lifetimes.advertisement()); }},
        {"release an advertisement", 3,
         [](RandomLifetimes& lifetimes) { lifetimes.release(lifetimes.advertisement()); }},
        {"take the steps directly", 6, takeSteps},
        {"change the daemon's answers", 4, changeAnswers},
        {"let the daemon come and go", 1, [](RandomLifetimes& lifetimes) { lifetimes.comeAndGo(); }},
    };
    return all;
}
