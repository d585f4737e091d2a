// The demo's peripheral with the real daemon, for somebody to look at.

#include "Bluetooth.h"
#include "Expect.h"
#include "Phone.h"
#include "scenes.h"

#include <QCoreApplication>
#include <QCryptographicHash>

namespace {

const QString manufacturerName = QStringLiteral("00002a29-0000-1000-8000-00805f9b34fb");
const QString heartRateMeasurement = QStringLiteral("00002a37-0000-1000-8000-00805f9b34fb");

/** A UUID of the demo's own. */
QString own(int number)
{
    return QStringLiteral("6e61%1-31c7-4b1a-9f0e-1a3cf2a7d001").arg(number, 4, 16, QLatin1Char('0'));
}

void showDevice(const QVariantMap& seen)
{
    Expect::note("a scanner sees " + seen.value("Name").toString() + " at " +
                 seen.value("Address").toString());
    Expect::note("  services:          " + seen.value("UUIDs").toStringList().join(", "));
    Expect::note("  manufacturer data: " + dataTexts(seen.value("ManufacturerData")).join(", "));
}

void showTree(const Phone& phone)
{
    Expect::note("a connected phone sees");
    for (const QString& line : phone.tree()) {
        Expect::note("  " + line);
    }
}

void showNotifications(Phone& phone)
{
    phone.subscribe(heartRateMeasurement);
    Expect::eventually([&] { return phone.notified(heartRateMeasurement).size() >= 5; },
                       "five heart rates are notified");
    for (const QByteArray& value : phone.notified(heartRateMeasurement).mid(0, 5)) {
        Expect::note("  notified: " + QString::number(value.size() > 1 ? value.at(1) : -1));
    }
    phone.unsubscribe(heartRateMeasurement);
}

} // namespace

void Scenes::demo()
{
    Bluetooth bluetooth;
    Child peripheral("peripheral", QCoreApplication::applicationDirPath() + "/demo-peripheral");
    const QString address = bluetooth.deviceAddress();
    Phone phone(bluetooth.phone(), address);
    phone.meet();
    showDevice(phone.device());
    showTree(phone);

    Expect::equal(phone.read(manufacturerName), QByteArray("Example Devices"),
                  "the manufacturer's name is read");
    const QByteArray record = phone.readPages(own(3), own(2));
    Expect::equal(QCryptographicHash::hash(record, QCryptographicHash::Sha256), phone.read(own(4)),
                  QString::number(record.size()) +
                      " bytes, page by page, have the digest that the device reports");
    showNotifications(phone);

    phone.write(own(5), "Heart of gold");
    phone.disconnectDevice();
    phone.forget();
    Expect::that(
        phone.discover([](const QVariantMap& seen) { return seen.value("Name") == "Heart of gold"; }),
        "a written name is advertised");
    bluetooth.killDaemon();
    bluetooth.startDaemon();
    bluetooth.awaitAdapters();
    phone.forget();
    phone.meet();
    Expect::equal(phone.read(manufacturerName), QByteArray("Example Devices"),
                  "the daemon is killed and started, and the phone reads again");
}
