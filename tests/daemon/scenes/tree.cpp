// The tree as a phone sees it, and its changes.

#include "Bluetooth.h"
#include "Expect.h"
#include "Peripheral.h"
#include "Phone.h"
#include "SceneTree.h"
#include "scenes.h"

#include <QRegularExpression>

void Scenes::tree()
{
    Bluetooth bluetooth;
    Peripheral peripheral;
    SceneTree::build(peripheral);
    peripheral.look();
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    phone.meet();

    const QStringList seen = phone.tree();
    Expect::same(seen, peripheral.tree(),
                 "every object of the tree, with flags and owners, and nothing else");
    Expect::that(seen.contains("service " + SceneTree::values + " primary"), "the primary service");
    Expect::that(seen.contains("service " + SceneTree::secondary + " secondary"), "the secondary service");
    Expect::that(seen.contains("characteristic " + SceneTree::record + " read,notify " + SceneTree::paged),
                 "a characteristic's flags and its service");
    Expect::that(seen.contains("descriptor " + SceneTree::note + ' ' + SceneTree::described),
                 "a descriptor and its characteristic");
    Expect::equal(seen.size(), 15, "how many objects there are");
}

void Scenes::change()
{
    Bluetooth bluetooth;
    Peripheral peripheral;
    SceneTree::build(peripheral);
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    phone.meet();

    const QString added = SceneTree::uuid(0x1100);
    peripheral.tell({"characteristic added values " + added + " read", QStringLiteral("value added 6e6577")});
    peripheral.awaitRegistration({"registerApp"}, 2);
    Expect::eventually([&] { return !phone.find(added).isEmpty(); },
                       "the phone sees an added characteristic");
    Expect::equal(phone.read(added), QByteArray("new"), "and reads it");

    peripheral.tell("delete paged");
    peripheral.awaitRegistration({"registerApp"}, 3);
    peripheral.look();
    const auto primary = [](const QStringList& lines) {
        return lines.filter(QRegularExpression("^(?!.*(" + SceneTree::secondary + "))"));
    };
    const auto sorted = [](QStringList lines) {
        lines.sort();
        return lines;
    };
    const QStringList expected = sorted(primary(peripheral.tree()));
    Expect::waitFor([&] { return sorted(primary(phone.tree())) == expected; });
    Expect::same(primary(phone.tree()), expected, "it sees that a service was deleted, without reconnecting");
    Expect::that(phone.connected(), "it has stayed connected");
    Expect::note(phone.tree().filter(SceneTree::secondary).isEmpty()
                     ? "a secondary service is not found again"
                     : "a secondary service is found again too");

    phone.disconnectDevice();
    phone.forget();
    phone.meet();
    Expect::same(phone.tree(), peripheral.tree(),
                 "a phone that meets it for the first time sees the whole tree");
    Expect::equal(phone.read(added), QByteArray("new"), "and reads the added characteristic");
}
