// Advertising, as the phone's daemon, btmon and bluetoothctl see it.

#include "Bluetooth.h"
#include "Expect.h"
#include "Peripheral.h"
#include "Phone.h"
#include "SceneTree.h"
#include "scenes.h"

#include <QRegularExpression>

namespace {

/** What bluetoothctl tells about the peripheral to somebody who sits at the phone. */
QString bluetoothctlInfo(const QString& phoneAddress, const QString& address)
{
    QProcess tool;
    tool.start("bluetoothctl", QStringList());
    tool.write("select " + phoneAddress.toLatin1() + "\ninfo " + address.toLatin1() + '\n');
    QString text;
    Expect::waitFor([&] {
        text += QString::fromUtf8(tool.readAllStandardOutput());
        return text.contains("Name:") && text.contains("UUID:");
    });
    tool.write("quit\n");
    tool.waitForFinished(5000);
    return text;
}

/** The AD structures in everything that the controllers reported of the peripheral, by btmon's account, in
 * hex. */
QStringList structures(const QString& monitored, const QString& address)
{
    static const QRegularExpression dump(
        "^ +(?:Advertising Data\\[[0-9]+\\]: ([0-9a-f]+)$|((?:[0-9a-f]{2} )+) )");
    QStringList payloads;
    bool peripherals = false;
    for (const QString& line : monitored.split('\n')) {
        const QRegularExpressionMatch match = dump.match(line);
        const QString bytes = match.captured(1) + match.captured(2).remove(' ');
        if (line.contains("Address: ")) {
            peripherals = line.contains("Address: " + address);
        } else if (line.contains("Data length: ") && peripherals) {
            payloads << QString();
        } else if (!bytes.isEmpty() && peripherals && !payloads.isEmpty()) {
            payloads.last() += bytes;
        } else if (!line.startsWith(' ')) {
            peripherals = false;
        }
    }
    QStringList found;
    for (const QString& payload : qAsConst(payloads)) {
        const QByteArray bytes = QByteArray::fromHex(payload.toLatin1());
        for (int at = 0; at + 1 < bytes.size(); at += uchar(bytes[at]) + 1) {
            found << QString::fromLatin1(bytes.mid(at + 1, uchar(bytes[at])).toHex(0));
        }
    }
    found.removeDuplicates();
    return found;
}

} // namespace

void Scenes::discover()
{
    Bluetooth bluetooth;
    Peripheral peripheral;
    peripheral.tell(SceneTree::advertisement());
    peripheral.tell({
        "set adv manufacturer ffff 01020304",
        "set adv service-data 180d 0a0b",
        "set adv data 26 a1a2",
        "set adv scan-response 24 b1b2b3",
        "add adv",
    });
    peripheral.awaitRegistration({"registerAdv"});

    Phone phone(bluetooth.phone(), bluetooth.deviceAddress());
    const auto isWhole = [](const QVariantMap& found) {
        return found.contains("ServiceData") && Phone::hasName(found);
    };
    Expect::that(phone.discover(isWhole), "the phone sees the peripheral");
    const QVariantMap seen = phone.device();
    Expect::equal(seen.value("Name").toString(), SceneTree::name, "the name");
    Expect::equal(seen.value("UUIDs").toStringList(), QStringList{"0000180d-0000-1000-8000-00805f9b34fb"},
                  "the service UUIDs");
    Expect::equal(dataTexts(seen.value("ManufacturerData")), QStringList{"ffff=01020304"},
                  "the manufacturer data");
    Expect::equal(dataTexts(seen.value("ServiceData")),
                  QStringList{"0000180d-0000-1000-8000-00805f9b34fb=0a0b"}, "the service data");

    const QString told = bluetoothctlInfo(bluetooth.phoneAddress(), bluetooth.deviceAddress());
    Expect::that(told.contains("Name: " + SceneTree::name), "bluetoothctl shows the name", told);
    Expect::that(told.contains("0000180d-0000-1000-8000-00805f9b34fb"), "bluetoothctl shows the service");

    QStringList expected{"030d18", "ffffff01020304", "160d180a0b", "26a1a2", "0106", "095363656e65"};
    if (version() != "5.66") { // which does not read ScanResponseData
        expected << "24b1b2b3";
    }
    QStringList heard;
    Expect::waitFor(
        [&] {
            heard = structures(bluetooth.monitored(), bluetooth.deviceAddress());
            return heard.size() >= expected.size();
        },
        30);
    Expect::same(heard, expected,
                 "btmon shows exactly these AD structures, raw block and scan response among them");
}

void Scenes::sizes()
{
    Bluetooth bluetooth;
    Peripheral peripheral;
    int number = 0;
    const auto advertise = [&](int bytes) {
        const QString name = "adv" + QString::number(bytes);
        peripheral.tell({"advertisement " + name + " /com/example/sizes/" + name + " set",
                         "set " + name + " manufacturer ffff " + QString("ab").repeated(bytes - 4),
                         "add " + name});
        QString refusal = peripheral.answer("registerAdv", ++number);
        peripheral.tell("remove " + name);
        return refusal;
    };
    const QString taken;
    Expect::equal(advertise(31), taken, "31 bytes of advertising data are accepted");
    if (version() == "5.66") {
        Expect::equal(advertise(32), "Failed to parse advertisement.", "32 are not");
        return;
    }
    Expect::equal(advertise(32), taken, "32 are accepted too: the controller supports extended advertising");
    Expect::equal(advertise(240), taken, "so are 240");
    const QString answer = advertise(250);
    Expect::note("250 bytes, which the controller could do: " + (answer == taken ? "taken" : answer) +
                 (bluetooth.daemonRuns() ? "" : "; the daemon has ended"));
}
