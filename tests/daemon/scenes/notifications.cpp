// Notifications.

#include "Bluetooth.h"
#include "Expect.h"
#include "NotificationReader.h"
#include "Peripheral.h"
#include "Phone.h"
#include "SceneTree.h"
#include "scenes.h"

#include <QRegularExpression>

#include <algorithm>
#include <memory>

namespace {

QList<QByteArray> numbers(int last)
{
    QList<QByteArray> values;
    for (int number = 1; number <= last; ++number) {
        values << QByteArray::number(number, 16).rightJustified(8, '0');
    }
    return values;
}

/** Without Enhanced ATT and its several channels beside each other, as with most phones. */
const QByteArray oneChannel = "[GATT]\nChannels = 1\n";

/** How many notifications btmon saw arrive. */
int monitoredNotifications(const Bluetooth& bluetooth)
{
    // One packet may carry several. Each is shown twice, as sent and as received.
    static const QRegularExpression value("\n +Data[^:\n]*: 30303030[0-9a-f]{8}\n");
    return int(bluetooth.monitored().count(value) / 2);
}

/** Lets 1,000 values be set without a pause and expects all of them to arrive; whether in order. */
bool burstArrives(const QByteArray& configuration)
{
    Bluetooth bluetooth(configuration);
    Peripheral peripheral;
    SceneTree::build(peripheral);
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    phone.meet();

    const NotificationReader reader(phone.openNotifications(SceneTree::counter));
    Expect::require([&] { return !peripheral.notifying("counter").isEmpty(); }, "the subscription");
    peripheral.tell("count counter 1000 0");
    QList<QByteArray> arrived = reader.await(1000);
    const bool inOrder = std::is_sorted(arrived.cbegin(), arrived.cend());
    std::sort(arrived.begin(), arrived.end());
    Expect::that(arrived == numbers(1000), "all 1,000 arrive", QString::number(arrived.size()) + " arrived");
    Expect::equal(phone.read(SceneTree::fixed), QByteArray("hello"), "the connection still works");
    return inOrder;
}

} // namespace

void Scenes::notify()
{
    Bluetooth bluetooth(oneChannel);
    Peripheral peripheral;
    SceneTree::build(peripheral);
    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    phone.meet();

    phone.subscribe(SceneTree::counter);
    Expect::eventually([&] { return peripheral.notifying("counter") == QStringList{"1"}; },
                       "subscribing reaches notifyStateChanged");
    peripheral.tell("value counter 68656c6c6f");
    Expect::eventually([&] { return phone.notified(SceneTree::counter) == QList<QByteArray>{"hello"}; },
                       "a value is notified");
    phone.unsubscribe(SceneTree::counter);
    Expect::eventually(
        [&] {
            return peripheral.notifying("counter") == QStringList{"1", "0"};
        },
        "unsubscribing reaches notifyStateChanged");
    static const QRegularExpression notification(
        "ATT: Handle (Multiple )?Value Notification[^\n]*\n[^>]*68656c6c6f");
    Expect::eventually([&] { return bluetooth.monitored().contains(notification); },
                       "btmon shows the notification's bytes");

    auto reader = std::make_unique<NotificationReader>(phone.openNotifications(SceneTree::counter));
    Expect::eventually([&] { return peripheral.notifying("counter").size() == 3; }, "subscribed again");
    peripheral.tell("count counter 200 20");
    const QList<QByteArray> arrived = reader->await(200);
    reader.reset();
    Expect::that(arrived == numbers(200), "200 spaced notifications arrive, in order",
                 QString::number(arrived.size()) + " arrived");
    Expect::eventually([&] { return monitoredNotifications(bluetooth) == 200; }, "btmon counts as many",
                       [&] { return QString::number(monitoredNotifications(bluetooth)); });

    phone.subscribe(SceneTree::record);
    phone.write(SceneTree::page, "1");
    peripheral.tell("value record 70617263656c");
    phone.read(SceneTree::fixed); // what was on its way has arrived
    Expect::that(phone.notified(SceneTree::record).isEmpty(),
                 "a value set while a page is selected is parked");
    phone.write(SceneTree::page, "0");
    Expect::eventually([&] { return phone.notified(SceneTree::record) == QList<QByteArray>{"parcel"}; },
                       "it is notified after the release");
}

void Scenes::burst()
{
    Expect::that(burstArrives(oneChannel), "in order");
}

void Scenes::wideBurst()
{
    const bool inOrder = burstArrives({});
    if (version() == "5.66") {
        // It opens three Enhanced ATT channels, whose packets overtake each other.
        Expect::note(QString("over three channels ") + (inOrder ? "in order" : "not in order"));
    } else {
        Expect::that(inOrder, "in order");
    }
}
