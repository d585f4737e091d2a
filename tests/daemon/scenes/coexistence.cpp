// Several programs, and the example in the README.

#include "Bluetooth.h"
#include "Expect.h"
#include "Peripheral.h"
#include "Phone.h"
#include "SceneTree.h"
#include "scenes.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>

void Scenes::two()
{
    const QString otherService = SceneTree::uuid(0x4000);
    const QString otherValue = SceneTree::uuid(0x4001);
    Bluetooth bluetooth;
    Peripheral first("first");
    SceneTree::build(first);
    Peripheral second("second");
    second.tell({
        QStringLiteral("application /com/example/other com.example.Other"),
        "service other " + otherService + " primary",
        "characteristic value other " + otherValue + " read,write",
        QStringLiteral("value value 6f74686572"),
        QStringLiteral("advertisement adv /com/example/other/advertisement set"),
        QStringLiteral("set adv manufacturer ffff 0506"),
        QStringLiteral("add application"),
        QStringLiteral("add adv"),
    });
    second.awaitRegistration();
    first.look();
    second.look();

    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    phone.meet();
    Expect::same(phone.tree(), first.tree() + second.tree(), "the phone sees both programs' trees");
    Expect::equal(phone.read(SceneTree::asked), QByteArray("answer"), "it reads from the first");
    Expect::equal(phone.read(otherValue), QByteArray("other"), "and from the second");
    phone.write(otherValue, "written");
    first.settle();
    second.settle();
    Expect::equal(second.written("value").value(0), QByteArray("written"), "a write reaches the second");
    Expect::that(first.written("writable").isEmpty(), "and not the first");

    second.kill();
    Expect::eventually([&] { return phone.find(otherValue).isEmpty(); },
                       "the second dies, and its tree goes");
    Expect::equal(phone.read(SceneTree::asked), QByteArray("answer"), "the first is read as before");
}

void Scenes::readme()
{
    const QString level = "00002a19-0000-1000-8000-00805f9b34fb";
    Bluetooth bluetooth;
    // What log4cplus's basic configuration writes to a file or pipe is only seen at once with line buffering.
    Child example("example", "stdbuf",
                  {"-oL", QCoreApplication::applicationDirPath() + "/example-01-battery-level"});
    Expect::eventually([&] { return example.wrote("Add advertisement: "); }, "the log says what was added");
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    Expect::that(phone.discover(Phone::hasName), "the phone sees the peripheral");
    const QVariantMap seen = phone.device(); // connected it shows the adapter's name instead
    phone.connectDevice();
    Expect::equal(seen.value("Name").toString(), "Battery", "the phone sees the name");
    Expect::that(seen.value("UUIDs").toStringList().contains("0000180f-0000-1000-8000-00805f9b34fb"),
                 "and the service");
    Expect::equal(phone.read(level), QByteArray(1, 87), "it reads 87 per cent");
    phone.subscribe(level);
    Expect::equal(phone.read(level), QByteArray(1, 87), "it can subscribe");
    Expect::that(!QDBusConnection::systemBus().interface()->isServiceRegistered("com.example.Battery"),
                 "all of it without the name on the bus, which takes a policy of one's own");
    Expect::that(!example.wrote("ERROR"), "the log has no error", example.text());
}
