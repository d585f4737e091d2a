// Every public header, by the name that a consumer uses, and something from each of the three libraries.
#include "BleDBusTypes.h"
#include "BleFinding.h"
#include "BleManager.h"
#include "BleRegistration.h"
#include "DBusBluez.h"
#include "DBusHelper.h"
#include "DBusTypes.h"
#include "GapAdvertisement.h"
#include "GattApplication.h"
#include "GattCharacteristic.h"
#include "GattDescriptor.h"
#include "GattService.h"
#include "ObjectManagerAdaptor.h"
#include "OrgBluezGattManager1Interface.h"
#include "OrgBluezLEAdvertisingManager1Interface.h"
#include "OrgFreedesktopDBusObjectManagerInterface.h"
#include "PropertiesAdaptor.h"
#include "plim.h"

#include <QCoreApplication>

#include <iostream>

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);

    GattApplication app(nullptr, "/consumer", "com.example.Consumer");
    GattService* service = app.createService("180f", true);
    GattCharacteristic* level = service->createCharacteristic("2a19", GattCharacteristic::Read, nullptr);
    level->addDescriptor("2901", GattDescriptor::Read);
    level->setValue("x");

    GapAdvertisement adv(nullptr, "/consumer/advertisement");
    int changes = 0;
    plim::connect(&adv, &GapAdvertisement::dataChanged, &program, [&] { ++changes; });
    adv.setLocalName("consumer");

    BleManager manager(nullptr);
    manager.add(&app);
    manager.add(&adv);

    OrgBluezGattManager1Interface gattManager(DBusBluezServiceName(), "/org/bluez/hci0",
                                              QDBusConnection::systemBus(), nullptr);
    OrgBluezLEAdvertisingManager1Interface advManager(DBusBluezServiceName(), "/org/bluez/hci0",
                                                      QDBusConnection::systemBus(), nullptr);

    const bool right = level->ReadValue({}) == "x" && changes == 1 && app.GetManagedObjects().size() == 3 &&
                       DBusHelper::findFirstObjectPath(app.GetManagedObjects(), "org.bluez.GattService1") ==
                           "/consumer/180f";
    std::cout << "consumer " << QString(right ? "works" : "does not work") << std::endl;
    return right ? 0 : 1;
}
