// Equal UUIDs, handles that stay, and included services.

#include "Expect.h"
#include "ProductStage.h"
#include "SceneTree.h"
#include "scenes.h"

namespace {

const QString report = SceneTree::uuid(0x9001);
const QString fixedValue = SceneTree::uuid(0x9002);
const QString keptValue = SceneTree::uuid(0x9003);
const QString freeValue = SceneTree::uuid(0x9004);

QStringList application()
{
    return {
        "plim-service reports " + SceneTree::uuid(0x9000) + " primary",
        "plim-characteristic first reports " + report + " read report1",
        "value first 6669727374",
        "plim-characteristic second reports " + report + " read report2",
        "value second 7365636f6e64",
        "plim-characteristic third reports " + report + " read report3",
        "value third 7468697264",
        "plim-service fixed " + SceneTree::uuid(0x9010) + " primary",
        "plim-characteristic fixed-value fixed " + fixedValue + " read",
        "handle fixed 256",
        "plim-service kept " + SceneTree::uuid(0x9020) + " primary",
        "plim-characteristic kept-value kept " + keptValue + " read",
        "handle kept 0",
        "plim-service free " + SceneTree::uuid(0x9030) + " primary",
        "plim-characteristic free-value free " + freeValue + " read",
        // Where the included service comes earlier, and where it comes later, by object path.
        "plim-service early " + SceneTree::uuid(0x9040) + " secondary include_a",
        "plim-service backwards " + SceneTree::uuid(0x9041) + " primary include_b",
        "include backwards early",
        "plim-service forwards " + SceneTree::uuid(0x9042) + " primary include_c",
        "plim-service late " + SceneTree::uuid(0x9043) + " secondary include_d",
        "include forwards late",
    };
}

/** The handle of the service that the attribute with the handle is in. */
quint16 serviceOf(const AttClient& central, quint16 handle)
{
    quint16 service = 0;
    for (const AttClient::Attribute& attribute : central.attributes()) {
        if ((attribute.type == longUuid(0x2800) || attribute.type == longUuid(0x2801)) &&
            attribute.handle < handle) {
            service = attribute.handle;
        }
    }
    return service;
}

QByteArray littleEndian(quint16 number)
{
    QByteArray bytes(1, char(number & 0xff));
    return bytes + char(number >> 8);
}

/** The included service has to come earlier; where it comes later the phone does not see that it is included.
 */
void expectIncludes(AttClient& central)
{
    const QList<quint16> includes = central.handles(longUuid(0x2802));
    Expect::equal(includes.size(), 1, "one of two included services is seen");
    const quint16 service = serviceOf(central, includes.value(0));
    Expect::equal(central.read(service).value, QByteArray::fromHex("e7c2b6a1d4902b8f1d4c7e3a4190e05c"),
                  "by the service whose object path comes later than the included one's");
    const quint16 included = central.handles(longUuid(0x2801)).value(0);
    Expect::equal(central.read(includes.value(0)).value.left(2), littleEndian(included),
                  "it names the included service");
    Expect::equal(central.read(included).value, QByteArray::fromHex("e7c2b6a1d4902b8f1d4c7e3a4090e05c"),
                  "which is the right one");
}

} // namespace

void Scenes::handles()
{
    ProductStage stage(application());
    AttClient& central = stage.central;
    Peripheral& peripheral = stage.peripheral;
    central.connectDevice();

    QStringList values;
    for (const quint16 handle : central.handles(report)) {
        values << QString::fromLatin1(central.read(handle).value);
    }
    Expect::equal(values, QStringList({"first", "second", "third"}),
                  "three reports with one UUID are read apart");

    Expect::equal(serviceOf(central, central.handle(fixedValue)), 256,
                  "a service has the handle that was fixed");
    const int kept = serviceOf(central, central.handle(keptValue));
    Expect::eventually([&] { return peripheral.told("handle kept") == QStringList{QString::number(kept)}; },
                       "of another the daemon chose one and has told it",
                       [&] { return Expect::text(peripheral.told("handle kept")); });
    const int before = central.handle(freeValue);
    expectIncludes(central);

    const int registered = peripheral.succeeded("registerApp");
    peripheral.tell("plim-characteristic more reports " + SceneTree::uuid(0x9005) + " read");
    peripheral.awaitRegistration({"registerApp"}, registered + 1);
    central.discover();
    Expect::equal(serviceOf(central, central.handle(fixedValue)), 256,
                  "registered anew the fixed one is there");
    Expect::equal(serviceOf(central, central.handle(keptValue)), kept, "so is the one that the daemon chose");
    Expect::that(central.handle(freeValue) != before, "a value in a service without a handle has moved");
    stage.expectWitness();
}
