// What a phone that has connected to the demo's peripheral sees of it, step by step. Ends with 0 if all of it
// is right.

#include "BleDBusTypes.h"
#include "DemoDevice.h"
#include "SimulatedPhone.h"

#include <QCoreApplication>
#include <QCryptographicHash>
#include <QDBusMetaType>

#include <cstdio>

namespace {

void say(const QString& text)
{
    std::printf("%s\n", qPrintable(text));
    std::fflush(stdout);
}

void step(const QString& title)
{
    say("\n" + title);
}

void expect(bool condition, const char* what)
{
    if (!condition) {
        SimulatedPhone::fail(QStringLiteral("not as expected: ") + what);
    }
}

QString hex(const QByteArray& bytes)
{
    return QString::fromLatin1(bytes.toHex(' '));
}

void showTree(const DBusManagedObjectList& tree)
{
    for (auto object = tree.cbegin(); object != tree.cend(); ++object) {
        const QString interface = object->firstKey();
        const QVariantMap properties = object->first();
        const bool service = interface == "org.bluez.GattService1";
        const int depth = service ? 1 : interface == "org.bluez.GattCharacteristic1" ? 2 : 3;
        const QString kind = interface.section('.', -1).remove("Gatt").chopped(1).toLower();
        const QString detail = service ? (properties.value("Primary").toBool() ? "primary" : "secondary")
                                       : properties.value("Flags").toStringList().join(", ");
        say(QString(depth * 2, ' ') + kind.leftJustified(22 - depth * 2) +
            properties.value("UUID").toString() + "  " + detail);
    }
}

void showBlocks(const QString& label, const QVariant& blocks)
{
    const auto map = qdbus_cast<DBusAdvData>(blocks);
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        say(label.leftJustified(22) + "type " + hex(QByteArray(1, char(it.key()))) + ": " + hex(*it));
    }
}

void showAdvertisement(const QVariantMap& properties)
{
    say("  type                " + properties.value("Type").toString());
    say("  name                " + properties.value("LocalName").toString());
    say("  service UUIDs       " + properties.value("ServiceUUIDs").toStringList().join(", "));
    say(QString("  flags               ") +
        (properties.value("Discoverable").toBool() ? "06: general discoverable, LE only" : "04: LE only"));
    const auto manufacturer = qdbus_cast<DBusManufacturerData>(properties.value("ManufacturerData"));
    for (auto it = manufacturer.cbegin(); it != manufacturer.cend(); ++it) {
        say("  manufacturer data   company " + QString::number(it.key(), 16) + ": " + hex(*it));
    }
    showBlocks("  advertising data", properties.value("Data"));
    showBlocks("  scan response", properties.value("ScanResponseData"));
}

void fetchRecord(const SimulatedPhone& phone, const DBusManagedObjectList& tree)
{
    const QByteArrayList pages = phone.readPages(phone.find(tree, DemoDevice::storageRecord),
                                                 phone.find(tree, DemoDevice::storagePage));
    QByteArray record;
    for (const QByteArray& page : pages) {
        say("  page of " + QString::number(page.size()) + " bytes");
        record += page;
    }
    const QByteArray digest = phone.read(phone.find(tree, DemoDevice::storageDigest));
    expect(record.size() == 1300, "the record's size");
    expect(QCryptographicHash::hash(record, QCryptographicHash::Sha256) == digest, "the record's SHA-256");
    say("  together " + QString::number(record.size()) +
        " bytes, SHA-256 as the peripheral says: " + QString::fromLatin1(digest.toHex().left(16)) + "...");
}

void changeName(const SimulatedPhone& phone, const QString& path)
{
    phone.write(path, "Heart of gold");
    phone.await("the new name in the advertisement", [&] {
        phone.awaitRegistration(DemoDevice::applicationPath, DemoDevice::advertisementPath);
        return phone.advertisement(DemoDevice::advertisementPath).value("LocalName") == "Heart of gold";
    });
    showAdvertisement(phone.advertisement(DemoDevice::advertisementPath));
}

void run(const SimulatedPhone& phone)
{
    step("The daemon registers the application and the advertisement");
    phone.awaitRegistration(DemoDevice::applicationPath, DemoDevice::advertisementPath);

    step("What a scanner sees");
    showAdvertisement(phone.advertisement(DemoDevice::advertisementPath));

    step("What a connected phone sees");
    const DBusManagedObjectList tree = phone.tree(DemoDevice::applicationPath);
    showTree(tree);

    step("The phone reads the manufacturer's name");
    const QByteArray name = phone.read(phone.find(tree, DemoDevice::manufacturerName));
    say("  " + QString::fromUtf8(name));
    expect(name == "Example Devices", "the manufacturer's name");

    step("The phone fetches a long value through its control characteristic");
    fetchRecord(phone, tree);

    step("The phone subscribes to the heart rate");
    for (const QByteArray& value :
         phone.notifications(phone.find(tree, DemoDevice::heartRateMeasurement), 5)) {
        expect(value.size() == 2, "a heart rate measurement's size");
        say("  notified: " + QString::number(value.at(1)) + " " +
            QString::fromUtf8(phone.read(phone.find(tree, DemoDevice::userDescription))));
    }

    step("The phone writes the device's name, and the advertisement is registered again");
    changeName(phone, phone.find(tree, DemoDevice::deviceName));

    step("The daemon restarts");
    phone.restartDaemon();
    phone.awaitRegistration(DemoDevice::applicationPath, DemoDevice::advertisementPath);
    const bool same = phone.tree(DemoDevice::applicationPath).keys() == tree.keys();
    expect(same, "the tree after the restart");
    say("  registered again, the same " + QString::number(tree.size()) + " objects");
    expect(phone.read(phone.find(tree, DemoDevice::manufacturerName)) == name, "a read after the restart");
    say("  and read again: " + QString::fromUtf8(name));
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication program(argc, argv);
    qDBusRegisterMetaType<DBusAdvData>();
    qDBusRegisterMetaType<DBusManufacturerData>();
    run(SimulatedPhone());
    step("All of it as expected");
    return 0;
}
