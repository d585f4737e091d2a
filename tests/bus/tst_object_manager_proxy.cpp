#include "AnnouncingDaemon.h"
#include "Eventually.h"
#include "LogCapture.h"
#include "OrgFreedesktopDBusObjectManagerInterface.h"
#include "plim.h"

#include <QProcess>
#include <QtTest>

#include <log4cplus/loglevel.h>

namespace {

const QString daemonName = QStringLiteral("org.example.Daemon");
constexpr int patienceMs = 30000;

using Proxy = OrgFreedesktopDBusObjectManagerInterface;

/** A proxy, and what it has received: "+/path" and "-/path". */
class Receiver
{
public:
    explicit Receiver(const QString& service = daemonName)
        : proxy(new Proxy(service, QStringLiteral("/"), QDBusConnection::systemBus()))
    {
        plim::connect(proxy.get(), &Proxy::InterfacesAdded, proxy.get(),
                      [this](const QDBusObjectPath& object, const DBusInterfaceList& interfaces) {
                          received << QLatin1Char('+') + object.path();
                          added = interfaces;
                      });
        plim::connect(proxy.get(), &Proxy::InterfacesRemoved, proxy.get(),
                      [this](const QDBusObjectPath& object, const QStringList& interfaces) {
                          received << QLatin1Char('-') + object.path();
                          removed = interfaces;
                      });
    }

    QStringList received;
    DBusInterfaceList added;
    QStringList removed;
    std::unique_ptr<Proxy> proxy;
};

} // namespace

/** The proxy of an object manager: which announcements it takes. */
class tst_object_manager_proxy : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { registerDBusTypes(); }
    void theOwnersAnnouncementsArrive();
    void whatWasSentJustBeforeTheNameWasTakenArrives();
    void everyDaemonIsHeardThatAnnouncesAtOnce();
    void everyDaemonIsHeardThatAnnouncesWhileTheLoopBegins();
    void theLastWordsOfAnOwnerArrive();
    void aStrangersAnnouncementIsNotTaken();
    void aFormerOwnersAnnouncementIsNotTaken();
    void aForgedOwnerIsNotBelieved();
    void strangersDoNotChangeTheOrder();
    void otherObjectsAndArgumentsAreIgnored();
    void aReceiverMayDeleteTheProxy();
    void aReceiverMayRunAnEventLoop();
    void withoutABusThereIsALineAtError();
};

void tst_object_manager_proxy::theOwnersAnnouncementsArrive()
{
    AnnouncingDaemon daemon("owner");
    QVERIFY(daemon.own(daemonName));
    Receiver receiver;
    daemon.add("/a");
    daemon.remove("/b");
    EVENTUALLY_COMPARE(receiver.received, QStringList({"+/a", "-/b"}));
    QCOMPARE(receiver.added, DBusInterfaceList({{"org.example.Thing", {{"Size", 7}}}}));
    QCOMPARE(receiver.removed, QStringList("org.example.Thing"));
}

void tst_object_manager_proxy::whatWasSentJustBeforeTheNameWasTakenArrives()
{
    AnnouncingDaemon daemon("late owner");
    Receiver receiver;
    QTest::qWait(1); // the proxy knows that nobody owns the name
    daemon.add("/a");
    daemon.flush();
    QVERIFY(daemon.own(daemonName));
    daemon.add("/b");
    EVENTUALLY_COMPARE(receiver.received, QStringList({"+/a", "+/b"}));
}

void tst_object_manager_proxy::everyDaemonIsHeardThatAnnouncesAtOnce()
{
    AnnouncingDaemon daemon("again and again");
    Receiver receiver;
    QStringList expected;
    for (int i = 0; i < 500; ++i) {
        QVERIFY(daemon.own(daemonName));
        daemon.add(QStringLiteral("/a%1").arg(i));
        expected << QStringLiteral("+/a%1").arg(i);
        while (receiver.received.size() <= i) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents); // QTest's watchdog bounds it
        }
        QVERIFY(daemon.release(daemonName));
    }
    QCOMPARE(receiver.received, expected);
}

void tst_object_manager_proxy::everyDaemonIsHeardThatAnnouncesWhileTheLoopBegins()
{
    constexpr int perProcess = 50;
    int heard = 0;
    for (int microseconds : {0, 500, 1000, 1500, 2000, 3000, 4000, 6000, 10000, 50000}) {
        QProcess process;
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process.start(qEnvironmentVariable("PLIM_ANNOUNCEMENTS_AT_START"),
                      {QString::number(perProcess), QString::number(microseconds)});
        QVERIFY(process.waitForFinished(patienceMs));
        heard += process.readAllStandardOutput().trimmed().toInt();
    }
    QCOMPARE(heard, 500);
}

void tst_object_manager_proxy::theLastWordsOfAnOwnerArrive()
{
    AnnouncingDaemon daemon("ending owner");
    QVERIFY(daemon.own(daemonName));
    Receiver receiver;
    daemon.add("/a");
    EVENTUALLY_COMPARE(receiver.received, QStringList("+/a"));
    daemon.remove("/a");
    QVERIFY(daemon.release(daemonName));
    EVENTUALLY_COMPARE(receiver.received, QStringList({"+/a", "-/a"}));
}

void tst_object_manager_proxy::aStrangersAnnouncementIsNotTaken()
{
    AnnouncingDaemon daemon("owner");
    AnnouncingDaemon stranger("stranger");
    Receiver receiver;
    stranger.add("/before/there/is/an/owner");
    stranger.flush();
    QTest::qWait(50); // nothing happens, so there is nothing to wait for
    QVERIFY(daemon.own(daemonName));
    stranger.add("/forged");
    stranger.remove("/forged");
    stranger.flush();
    daemon.add("/a");
    EVENTUALLY_COMPARE(receiver.received, QStringList("+/a"));
    stranger.add("/forged");
    stranger.flush();
    daemon.remove("/a");
    EVENTUALLY_COMPARE(receiver.received, QStringList({"+/a", "-/a"}));
}

void tst_object_manager_proxy::aFormerOwnersAnnouncementIsNotTaken()
{
    AnnouncingDaemon former("former owner");
    AnnouncingDaemon daemon("owner");
    Receiver receiver;
    QVERIFY(former.own(daemonName));
    former.add("/former");
    EVENTUALLY_COMPARE(receiver.received, QStringList("+/former"));
    QVERIFY(former.release(daemonName));
    QVERIFY(daemon.own(daemonName));
    daemon.add("/a");
    EVENTUALLY_COMPARE(receiver.received, QStringList({"+/former", "+/a"}));
    former.add("/former/again");
    former.flush();
    daemon.add("/b");
    EVENTUALLY_COMPARE(receiver.received, QStringList({"+/former", "+/a", "+/b"}));
}

void tst_object_manager_proxy::aForgedOwnerIsNotBelieved()
{
    AnnouncingDaemon daemon("owner");
    AnnouncingDaemon stranger("forger");
    QVERIFY(daemon.own(daemonName));
    Receiver receiver;
    daemon.add("/a");
    EVENTUALLY_COMPARE(receiver.received, QStringList("+/a"));
    stranger.send("NameOwnerChanged", {daemonName, QString(), stranger.uniqueName()}, "/org/freedesktop/DBus",
                  "org.freedesktop.DBus");
    stranger.add("/forged");
    stranger.flush();
    daemon.add("/b");
    EVENTUALLY_COMPARE(receiver.received, QStringList({"+/a", "+/b"}));
}

void tst_object_manager_proxy::strangersDoNotChangeTheOrder()
{
    AnnouncingDaemon daemon("owner");
    AnnouncingDaemon stranger("stranger");
    QVERIFY(daemon.own(daemonName));
    Receiver receiver;
    QStringList expected;
    for (int i = 0; i < 100; ++i) {
        const QString object = QStringLiteral("/a%1").arg(i);
        stranger.add(object);
        if (i % 7 == 0) {
            stranger.flush();
            QTest::qWait(1);
        }
        daemon.add(object);
        daemon.flush();
        expected << QLatin1Char('+') + object;
    }
    EVENTUALLY_COMPARE(receiver.received, expected);
}

void tst_object_manager_proxy::otherObjectsAndArgumentsAreIgnored()
{
    AnnouncingDaemon daemon("owner");
    QVERIFY(daemon.own(daemonName));
    Receiver receiver;
    daemon.send("InterfacesAdded", {"/text", "no interfaces"});
    daemon.send("InterfacesAdded", {});
    daemon.send("InterfacesRemoved", {QVariant::fromValue(QDBusObjectPath("/x")), 5});
    daemon.send("InterfacesRemoved",
                {QVariant::fromValue(QDBusObjectPath("/x")), QStringList("org.example.Thing")}, "/elsewhere");
    daemon.add("/a");
    EVENTUALLY_COMPARE(receiver.received, QStringList("+/a"));
}

void tst_object_manager_proxy::aReceiverMayDeleteTheProxy()
{
    AnnouncingDaemon daemon("owner");
    Receiver receiver;
    plim::connect(receiver.proxy.get(), &Proxy::InterfacesAdded, this, [&] { receiver.proxy.reset(); });
    daemon.add("/a"); // waits for the answer of the bus, as the next one does
    daemon.add("/b");
    daemon.flush();
    QVERIFY(daemon.own(daemonName));
    QTRY_VERIFY_WITH_TIMEOUT(!receiver.proxy, 10000);
    QTest::qWait(1);
    QCOMPARE(receiver.received, QStringList("+/a"));
}

void tst_object_manager_proxy::aReceiverMayRunAnEventLoop()
{
    AnnouncingDaemon daemon("owner");
    Receiver receiver;
    QStringList expected;
    const auto addAnother = [&](const QString& object) {
        daemon.add(object);
        daemon.flush();
        expected << QLatin1Char('+') + object;
    };
    plim::connect(receiver.proxy.get(), &Proxy::InterfacesAdded, this, [&](const QDBusObjectPath& object) {
        if (object.path() == QLatin1String("/a")) {
            addAnother("/d");
            QTest::qWait(100); // in which the rest arrives
        }
    });
    addAnother("/a");
    addAnother("/b");
    addAnother("/c");
    QVERIFY(daemon.own(daemonName));
    EVENTUALLY_COMPARE(receiver.received, expected);
}

void tst_object_manager_proxy::withoutABusThereIsALineAtError()
{
    const LogCapture log;
    const QDBusConnection none = QDBusConnection::connectToBus("unix:path=/nonexistent", "no bus");
    const Proxy proxy(daemonName, "/", none);
    const QString added = "Cannot subscribe to org.freedesktop.DBus.ObjectManager.InterfacesAdded for "
                          "org.example.Daemon: no bus";
    QVERIFY(log.texts(log4cplus::ERROR_LOG_LEVEL).contains(added));
}

QTEST_GUILESS_MAIN(tst_object_manager_proxy)
#include "tst_object_manager_proxy.moc"
