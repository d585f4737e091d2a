// What a phone sees of each example, and what the example says.

#include "Eventually.h"
#include "PlimBleTest.h"

#include <QProcess>

#include <algorithm>

namespace {

constexpr int PatienceMs = 20000;

/** The UUID of the example's own with a number. */
QString own(int example, int number)
{
    return QStringLiteral("c0de%1-5f2a-4d6b-9a57-1f6d0a3b%2")
        .arg(number, 4, 16, QLatin1Char('0'))
        .arg(example, 4, 16, QLatin1Char('0'));
}

QString assigned(quint16 number)
{
    return QStringLiteral("%1-0000-1000-8000-00805f9b34fb").arg(number, 8, 16, QLatin1Char('0'));
}

QByteArray byte(int number)
{
    return QByteArray(1, char(number));
}

/** Whether the example has told the daemon so far whether phones may pair. */
bool hasSetPairable()
{
    const auto calls = qdbus_cast<QList<QVariantMap>>(PlimBleTest::control("Calls").arguments().value(0));
    return std::any_of(calls.cbegin(), calls.cend(),
                       [](const QVariantMap& call) { return call.value("member") == "Set"; });
}

/** Whether the daemon lets phones pair. */
bool pairable()
{
    QDBusMessage get = QDBusMessage::createMethodCall("org.bluez", "/org/bluez/hci0",
                                                      "org.freedesktop.DBus.Properties", "Get");
    get << "org.bluez.Adapter1"
        << "Pairable";
    const QDBusMessage answer = PlimBleTestDetail::callWithEventLoop(QDBusConnection::systemBus(), get);
    return answer.arguments().value(0).value<QDBusVariant>().variant().toBool();
}

/** An example that runs, until this object ends. */
class Example : public QProcess
{
public:
    explicit Example(const QString& name)
    {
        setProcessChannelMode(MergedChannels);
        start(QStringLiteral(EXAMPLES "/") + name, QStringList());
        connect(this, &QProcess::readyRead, this, [this] { m_output += readAll(); });
    }

    ~Example() override { end(); }

    bool says(const char* text) const { return m_output.contains(text); }

    /** Asks it to end, and waits until it has. */
    void end()
    {
        terminate();
        if (!waitForFinished(PatienceMs)) {
            kill();
            waitForFinished(PatienceMs);
        }
    }

private:
    QByteArray m_output;
};

} // namespace

class TestExamples : public QObject
{
    Q_OBJECT

private slots:
    void batteryLevel()
    {
        PlimBleTest ble;
        Example example("example-01-battery-level");
        EVENTUALLY_COMPARE(ble.applications(), QStringList("/com/example/battery"));
        EVENTUALLY_COMPARE(ble.advertisements(), QStringList("/com/example/battery/advertisement"));
        const QString level = ble.find(assigned(0x2a19));
        QCOMPARE(ble.read(level), byte(87));
        ble.subscribe(level);
        // What the guide promises.
        EVENTUALLY_VERIFY(
            example.says("RegisterApplication of /com/example/battery at /org/bluez/hci0: done\n"));
        EVENTUALLY_VERIFY(example.says(
            "RegisterAdvertisement of /com/example/battery/advertisement at /org/bluez/hci0: done\n"));
        QCOMPARE(ble.advertisement("/com/example/battery/advertisement").value("LocalName").toString(),
                 "Battery");
    }

    void setting()
    {
        PlimBleTest ble;
        Example example("example-02-setting");
        EVENTUALLY_COMPARE(ble.applications(), QStringList("/com/example/lamp"));
        EVENTUALLY_COMPARE(ble.advertisements(), QStringList("/com/example/lamp/advertisement"));
        const QString brightness = ble.find(own(2, 2));
        QCOMPARE(ble.read(brightness), byte(50));

        ble.write(brightness, byte(80));
        EVENTUALLY_VERIFY(example.says("brightness set to 80 per cent"));
        QCOMPARE(ble.read(brightness), byte(80));

        ble.subscribe(brightness);
        ble.write(brightness, byte(101));
        EVENTUALLY_VERIFY(example.says("rejected: 65"));
        QCOMPARE(ble.read(brightness), byte(80));
        EVENTUALLY_VERIFY(ble.notifications(brightness).contains(byte(80)));
        QVERIFY(!ble.notifications(brightness).contains(byte(101)));

        ble.write(brightness, "12");
        QCOMPARE(ble.read(brightness), byte(80));
    }

    void longValue()
    {
        PlimBleTest ble;
        Example example("example-03-long-value");
        EVENTUALLY_COMPARE(ble.applications(), QStringList("/com/example/log"));
        EVENTUALLY_COMPARE(ble.advertisements(), QStringList("/com/example/log/advertisement"));
        const QString page = ble.find(own(3, 2));
        const QString text = ble.find(own(3, 3));

        const QList<QByteArray> first = ble.readPages(text, page);
        QCOMPARE(first.size(), 3);
        QCOMPARE(first[0].size(), 512);
        QCOMPARE(first[1].size(), 512);
        const QByteArray log = QByteArrayList(first).join();
        QVERIFY(log.size() > 1300);
        const QByteArrayList lines = log.split('\n');
        for (int i = 0; i + 1 < lines.size(); ++i) {
            QCOMPARE(lines[i].left(4).toInt(), i);
        }

        const QByteArray second = QByteArrayList(ble.readPages(text, page)).join();
        QVERIFY2(second.startsWith(log) && second.size() > log.size(), second);
    }

    void beacon()
    {
        PlimBleTest ble;
        Example example("example-04-beacon");
        const QString path = "/com/example/beacon";
        EVENTUALLY_COMPARE(ble.advertisements(), QStringList(path));
        QCOMPARE(ble.advertisement(path).value("Type").toString(), "broadcast");
        using Data = QMap<ushort, QDBusVariant>;
        const auto heard = [&] {
            // An error between two registrations.
            const QDBusMessage answer =
                PlimBleTest::control("Advertisement", {QVariant::fromValue(QDBusObjectPath(path))});
            const auto properties = qdbus_cast<QVariantMap>(answer.arguments().value(0));
            const auto data = qdbus_cast<Data>(properties.value("ManufacturerData"));
            return data.value(0xffff).variant().toByteArray();
        };
        QByteArray first;
        EVENTUALLY_VERIFY((first = heard()).size() == 4);
        QByteArray later;
        EVENTUALLY_VERIFY((later = heard()).size() == 4 && later[0] > first[0]);
        QVERIFY(ble.applications().isEmpty());
    }

    void wholeDevice()
    {
        PlimBleTest ble;
        Example example("example-05-whole-device");
        EVENTUALLY_COMPARE(ble.applications(), QStringList("/com/example/thermostat"));
        EVENTUALLY_COMPARE(ble.advertisements(), QStringList("/com/example/thermostat/advertisement"));
        QCOMPARE(ble.read(ble.find(assigned(0x2a29))), QByteArray("Example Devices"));
        QCOMPARE(ble.read(ble.find(assigned(0x2a24))), QByteArray("Thermostat 1"));
        QCOMPARE(ble.read(ble.find(assigned(0x2a26))), QByteArray("1.0.0"));
        QCOMPARE(ble.read(ble.find(assigned(0x2901))), QByteArray("Target temperature"));

        const QString battery = ble.find(assigned(0x2a19));
        ble.subscribe(battery);
        EVENTUALLY_VERIFY(!ble.notifications(battery).isEmpty());
        QVERIFY(ble.notifications(battery).constFirst().at(0) < 100);

        const QString target = ble.find(own(5, 2));
        ble.write(target, byte(25));
        QCOMPARE(ble.read(target), byte(25));
        ble.write(target, byte(31));
        QCOMPARE(ble.read(target), byte(25));

        ble.restart();
        EVENTUALLY_COMPARE(ble.applications(), QStringList("/com/example/thermostat"));
        EVENTUALLY_COMPARE(ble.advertisements(), QStringList("/com/example/thermostat/advertisement"));
        QCOMPARE(ble.read(ble.find(own(5, 2))), byte(25));
    }

    void eventLoop()
    {
        PlimBleTest ble;
        Example example("example-07-event-loop");
        EVENTUALLY_COMPARE(ble.applications(), QStringList("/com/example/uptime"));
        const QString uptime = ble.find(own(7, 2));
        ble.subscribe(uptime);
        EVENTUALLY_VERIFY(example.says("subscribed"));
        EVENTUALLY_VERIFY(ble.notifications(uptime).size() >= 3);
        QVERIFY(ble.notifications(uptime).at(0).toDouble() <= ble.notifications(uptime).at(2).toDouble());
        QVERIFY(ble.read(uptime).toDouble() > 0);

        example.end();
        QCOMPARE(example.exitStatus(), QProcess::NormalExit);
        QCOMPARE(example.exitCode(), 0);
        EVENTUALLY_VERIFY(example.says("ended"));
        EVENTUALLY_VERIFY(ble.applications().isEmpty());
    }

    void eventLoopEndsWithTheBus()
    {
        QProcess bus;
        bus.start("dbus-daemon", {"--session", "--nofork", "--print-address"});
        QVERIFY(bus.waitForReadyRead(PatienceMs));
        const QByteArray address = bus.readLine().trimmed();
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", address);
        Example example("example-07-event-loop");
        const auto observer = QDBusConnection::connectToBus(address, "observer");
        EVENTUALLY_VERIFY(observer.interface()->isServiceRegistered("com.example.Uptime"));
        bus.kill();
        bus.waitForFinished(PatienceMs);
        EVENTUALLY_VERIFY(example.says("ended"));
        EVENTUALLY_COMPARE(example.state(), QProcess::NotRunning);
        QCOMPARE(example.exitCode(), 0);
    }

    void outcomes()
    {
        PlimBleTest ble;
        Example example("example-08-outcomes");
        EVENTUALLY_VERIFY(example.says("warning: /com/example/outcomes/c0de0001"));
        EVENTUALLY_VERIFY(example.says("advertisement: registration pending at /org/bluez/hci0"));
        EVENTUALLY_VERIFY(
            example.says("RegisterApplication of /com/example/outcomes at /org/bluez/hci0: done"));
        const QString advertisement("/com/example/outcomes/advertisement");
        EVENTUALLY_COMPARE(ble.advertisements(), QStringList(advertisement));
        PlimBleTest::control("ReleaseAdvertisement", {QVariant::fromValue(QDBusObjectPath(advertisement))});
        EVENTUALLY_VERIFY(example.says("BlueZ released /com/example/outcomes/advertisement"));
        EVENTUALLY_COMPARE(ble.advertisements(), QStringList(advertisement));
        ble.vanish();
        EVENTUALLY_VERIFY(example.says("org.bluez.LEAdvertisingManager1 is gone from /org/bluez/hci0"));
    }

    void outcomesOfARefusal()
    {
        PlimBleTest ble;
        ble.refuse("RegisterAdvertisement", "org.bluez.Error.NotPermitted", "Maximum advertisements reached");
        Example example("example-08-outcomes");
        EVENTUALLY_VERIFY(example.says("RegisterAdvertisement of /com/example/outcomes/advertisement at "
                                       "/org/bluez/hci0: failed: Maximum advertisements reached "
                                       "(org.bluez.Error.NotPermitted)"));
    }

    void lock()
    {
        PlimBleTest ble;
        Example example("example-09-lock");
        EVENTUALLY_COMPARE(ble.applications(), QStringList("/com/example/lock"));
        EVENTUALLY_COMPARE(ble.advertisements(), QStringList("/com/example/lock/advertisement"));
        const QString code = ble.find(own(9, 2));
        const QString state = ble.find(own(9, 3));
        PlimBleTest::Phone phone;
        phone.write(code, "2580");
        QCOMPARE(phone.error(), "0x0f Insufficient Encryption");
        phone.protect("encrypted");
        phone.subscribeToIndications(state);
        phone.write(code, "0000");
        QCOMPARE(phone.error(), "0x80 Application Error");
        EVENTUALLY_VERIFY(example.says("wrong code from /org/bluez/hci0/dev_00_AA_01_01_00_02"));
        QCOMPARE(phone.read(state), QByteArray("locked"));
        phone.write(code, "2580");
        QCOMPARE(phone.error(), "");
        QCOMPARE(phone.read(state), QByteArray("open"));
        EVENTUALLY_VERIFY(example.says("a phone knows the state"));
        EVENTUALLY_COMPARE(phone.notifications(state), (QList<QByteArray>{"open", "locked"}));

        PlimBleTest::Phone stranger("00:AA:01:01:00:03");
        stranger.protect("encrypted");
        for (int i = 0; i < 3; ++i) {
            stranger.write(code, "1234");
            QCOMPARE(stranger.error(), "0x80 Application Error");
        }
        stranger.write(code, "2580");
        QCOMPARE(stranger.error(), "0x08 Insufficient Authorization");
        QCOMPARE(stranger.read(state), QByteArray("locked"));
        phone.write(code, "2580");
        QCOMPARE(phone.error(), "");
    }

    void pairing()
    {
        PlimBleTest ble;
        Example example("example-10-pairing");
        EVENTUALLY_COMPARE(ble.applications(), QStringList("/com/example/diary"));
        EVENTUALLY_COMPARE(ble.advertisements(), QStringList("/com/example/diary/advertisement"));
        const QString entry = ble.find(own(10, 2));
        const auto pair = [&](PlimBleTest::Phone& phone, const char* key) {
            example.write("p\n");
            EVENTUALLY_VERIFY(example.says("waiting for a phone"));
            EVENTUALLY_COMPARE(pairable(), true); // BlueZ knows of it later than the user
            phone.pair();
            EVENTUALLY_VERIFY(!phone.passkey().isEmpty());
            EVENTUALLY_VERIFY(example.says(
                QByteArray("does the phone show " + phone.passkey().toUtf8() + '?').constData()));
            example.write(key);
        };

        PlimBleTest::Phone phone;
        phone.read(entry);
        QCOMPARE(phone.error(), "0x05 Insufficient Authentication");
        EVENTUALLY_VERIFY(hasSetPairable()); // without an agent, it is not pairable either
        EVENTUALLY_COMPARE(pairable(), false);
        phone.pair();
        EVENTUALLY_COMPARE(phone.pairing(),
                           "failed: 0x05 Pairing Not Supported"); // nobody pressed the button
        phone.connect();
        pair(phone, "n\n");
        EVENTUALLY_COMPARE(phone.pairing(), "failed: 0x0c Numeric Comparison Failed");
        phone.connect();
        pair(phone, "y\n");
        EVENTUALLY_COMPARE(phone.pairing(), "paired");
        EVENTUALLY_VERIFY(example.says("paired: 00:AA:01:01:00:02"));
        EVENTUALLY_VERIFY(example.says("pairing ends"));
        QCOMPARE(phone.read(entry), QByteArray("dear diary"));

        phone.disconnect();
        // The example may hear of the link later than of the key.
        EVENTUALLY_VERIFY(example.write("l\n") && example.says("00:AA:01:01:00:02 away\n1 bonded"));
        phone.connect();
        EVENTUALLY_VERIFY(example.write("l\n") && example.says("00:AA:01:01:00:02 connected\n1 bonded"));
        example.write("r\nl\n");
        EVENTUALLY_VERIFY(example.says("all phones forgotten"));
        EVENTUALLY_VERIFY(example.write("l\n") && example.says("0 bonded"));
        phone.connect();
        phone.read(entry);
        QCOMPARE(phone.error(), "0x05 Insufficient Authentication");
    }

    void serialConsole()
    {
        PlimBleTest ble;
        Example example("example-11-serial-console");
        EVENTUALLY_COMPARE(ble.applications(), QStringList("/com/example/console"));
        EVENTUALLY_COMPARE(ble.advertisements(), QStringList("/com/example/console/advertisement"));
        const QString rx = ble.find("6e400002-b5a3-f393-e0a9-e50e24dcca9e");
        const QString tx = ble.find("6e400003-b5a3-f393-e0a9-e50e24dcca9e");
        PlimBleTest::Phone phone;
        QByteArray expected = "welcome, type help\n";
        const auto screen = [&] { return phone.notifications(tx).join(); };
        phone.subscribe(tx);
        EVENTUALLY_COMPARE(screen(), expected);
        EVENTUALLY_VERIFY(example.says("a phone: /org/bluez/hci0/dev_00_AA_01_01_00_02"));

        phone.write(rx, "help\r\nled ");
        expected += "help, uptime, led on|off, echo TEXT\n";
        EVENTUALLY_COMPARE(screen(), expected);
        phone.writeWithoutResponse(rx, "on\n");
        phone.write(rx, "led off\nled blue\necho good  day\n");
        expected += "ok\nok\nerror: type help\ngood  day\n";
        EVENTUALLY_COMPARE(screen(), expected);
        EVENTUALLY_VERIFY(example.says("led on\nled off\n"));
        for (int i = 0; i < 3; ++i) {
            phone.write(rx, QByteArray(500, 'x')); // is not kept
        }
        phone.write(rx, "uptime\nled");
        EVENTUALLY_VERIFY(screen().mid(expected.size()).startsWith("up for ") && screen().endsWith(" s\n"));
        phone.unsubscribe(tx);
        EVENTUALLY_VERIFY(example.says("the phone has gone, 0 bytes not sent, 3 bytes not read"));
    }

    void demo()
    {
        PlimBleTest ble;
        ble.refuse("RegisterAdvertisement", "org.bluez.Error.Failed", "Failed to register advertisement");
        Example peripheral("demo-peripheral");
        EVENTUALLY_VERIFY(
            peripheral.says("RegisterApplication of /com/example/heartrate at /org/bluez/hci0: done"));
        EVENTUALLY_VERIFY(peripheral.says("RegisterAdvertisement of /com/example/heartrate/advertisement at "
                                          "/org/bluez/hci0: failed: Failed to register advertisement"));
        ble.vanish();
        EVENTUALLY_VERIFY(peripheral.says("org.bluez.GattManager1 is gone from /org/bluez/hci0"));
    }
};

QTEST_GUILESS_MAIN(TestExamples)
#include "tst_examples.moc"
