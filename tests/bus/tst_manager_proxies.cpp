#include "MetaObjectText.h"
#include "OrgBluezGattManager1Interface.h"
#include "OrgBluezLEAdvertisingManager1Interface.h"
#include "SimulatorScenario.h"

using namespace MetaObjectText;
using namespace Scenario;

namespace {

const QString bluez = QStringLiteral("org.bluez");
const QString adapter = QStringLiteral("/org/bluez/hci0");

} // namespace

/** The manager's and the proxies' meta-objects, and what the proxies send and read. */
class tst_manager_proxies : public QObject
{
    Q_OBJECT

private slots:
    void theManagersMetaObject();
    void theGattManagersMetaObject();
    void theAdvertisingManagersMetaObject();
    void registerApplicationSendsPathAndOptions();
    void unregisterAdvertisementSendsOnePath();
    void methodsCanBeInvokedByName();
    void propertiesAreReadFromTheDaemon();
};

void tst_manager_proxies::theManagersMetaObject()
{
    const QMetaObject& metaObject = BleManager::staticMetaObject;
    QCOMPARE(metaObject.superClass(), &QObject::staticMetaObject);
    QCOMPARE(methods(metaObject),
             QStringList(
                 {"private slot: void on_interfacesAdded(QDBusObjectPath path, DBusInterfaceList interfaces)",
                  "private slot: void on_interfacesRemoved(QDBusObjectPath path, QStringList interfaces)",
                  "private slot: void on_applicationDeleted(QObject* obj)",
                  "private slot: void on_advertisementDeleted(QObject* obj)",
                  "private slot: void on_advertisementChanged(const GapAdvertisement* adv)",
                  "private slot: void on_applicationChanged(const GattApplication* app)",
                  "private slot: void on_dbusWatcher_finished(QDBusPendingCallWatcher* watcher)"}));
    QCOMPARE(properties(metaObject), QStringList());
    QCOMPARE(classInfos(metaObject), QStringList());
}

void tst_manager_proxies::theGattManagersMetaObject()
{
    const QMetaObject& metaObject = OrgBluezGattManager1Interface::staticMetaObject;
    QCOMPARE(metaObject.className(), "OrgBluezGattManager1Interface");
    QCOMPARE(metaObject.superClass(), &QDBusAbstractInterface::staticMetaObject);
    QCOMPARE(
        methods(metaObject),
        QStringList({"public slot: QDBusPendingReply<> RegisterApplication(QDBusObjectPath application, "
                     "QVariantMap options)",
                     "public slot: QDBusPendingReply<> UnregisterApplication(QDBusObjectPath application)"}));
    QCOMPARE(properties(metaObject), QStringList());
    QCOMPARE(classInfos(metaObject), QStringList());
    QCOMPARE(OrgBluezGattManager1Interface::staticInterfaceName(), "org.bluez.GattManager1");
}

void tst_manager_proxies::theAdvertisingManagersMetaObject()
{
    const QMetaObject& metaObject = OrgBluezLEAdvertisingManager1Interface::staticMetaObject;
    QCOMPARE(metaObject.className(), "OrgBluezLEAdvertisingManager1Interface");
    QCOMPARE(metaObject.superClass(), &QDBusAbstractInterface::staticMetaObject);
    QCOMPARE(
        methods(metaObject),
        QStringList({"public slot: QDBusPendingReply<> RegisterAdvertisement(QDBusObjectPath advertisement, "
                     "QVariantMap options)",
                     "public slot: QDBusPendingReply<> UnregisterAdvertisement(QDBusObjectPath service)"}));
    QCOMPARE(properties(metaObject),
             QStringList({"uchar ActiveInstances", "QVariantMap SupportedCapabilities",
                          "QStringList SupportedFeatures", "QStringList SupportedIncludes",
                          "uchar SupportedInstances", "QStringList SupportedSecondaryChannels"}));
    QCOMPARE(classInfos(metaObject), QStringList());
    QCOMPARE(OrgBluezLEAdvertisingManager1Interface::staticInterfaceName(),
             "org.bluez.LEAdvertisingManager1");
}

void tst_manager_proxies::registerApplicationSendsPathAndOptions()
{
    Simulator daemon;
    OrgBluezGattManager1Interface proxy(bluez, adapter, QDBusConnection::systemBus(), this);
    QCOMPARE(proxy.parent(), this);
    daemon.neverAnswer("RegisterApplication");
    const QDBusPendingReply<> unanswered = proxy.RegisterApplication(QDBusObjectPath("/unanswered"), {});
    daemon.settle();
    QVERIFY(!unanswered.isFinished());
    daemon.clearCalls();
    daemon.answerWithError("RegisterApplication", "org.bluez.Error.Failed", "Not now");
    QDBusPendingReply<> reply = proxy.RegisterApplication(QDBusObjectPath("/p"), {});
    reply.waitForFinished();
    QCOMPARE(reply.error().message(), QString("Not now"));
    proxy.RegisterApplication(QDBusObjectPath("/q"), {{"key", 5}}).waitForFinished();
    QCOMPARE(daemon.calls(), QStringList({"/org/bluez/hci0 RegisterApplication(/p, {})",
                                          "/org/bluez/hci0 RegisterApplication(/q, {\"key\": <5>})"}));
    QCOMPARE(daemon.callRecords().constFirst().value("signature"), QVariant("oa{sv}"));
}

void tst_manager_proxies::unregisterAdvertisementSendsOnePath()
{
    const Simulator daemon;
    OrgBluezLEAdvertisingManager1Interface proxy(bluez, adapter, QDBusConnection::systemBus(), nullptr);
    QDBusPendingReply<> reply = proxy.UnregisterAdvertisement(QDBusObjectPath("/p"));
    reply.waitForFinished();
    QCOMPARE(reply.error().name(), QString("org.bluez.Error.DoesNotExist"));
    QCOMPARE(daemon.calls(), QStringList("/org/bluez/hci0 UnregisterAdvertisement(/p)"));
    QCOMPARE(daemon.callRecords().constFirst().value("signature"), QVariant("o"));
}

void tst_manager_proxies::methodsCanBeInvokedByName()
{
    const Simulator daemon;
    OrgBluezGattManager1Interface proxy(bluez, adapter, QDBusConnection::systemBus(), nullptr);
    QVERIFY(QMetaObject::invokeMethod(&proxy, "UnregisterApplication",
                                      Q_ARG(QDBusObjectPath, QDBusObjectPath("/p"))));
    daemon.settle();
    QCOMPARE(daemon.calls(), QStringList("/org/bluez/hci0 UnregisterApplication(/p)"));
}

void tst_manager_proxies::propertiesAreReadFromTheDaemon()
{
    const Simulator daemon(acceptEverything);
    const OrgBluezLEAdvertisingManager1Interface proxy(bluez, adapter, QDBusConnection::systemBus(), nullptr);
    QCOMPARE(proxy.activeInstances(), uchar(0));
    QCOMPARE(proxy.supportedInstances(), uchar(5));
    QCOMPARE(proxy.supportedIncludes(), QStringList({"tx-power", "appearance", "local-name"}));
    QCOMPARE(proxy.supportedSecondaryChannels(), QStringList({"1M", "2M", "Coded"}));
    QCOMPARE(proxy.supportedFeatures(), QStringList("CanSetTxPower"));
    QCOMPARE(proxy.supportedCapabilities().value("MaxAdvLen"), QVariant::fromValue(uchar(31)));
    QCOMPARE(proxy.property("SupportedCapabilities").toMap().size(), 4);

    const GapAdvertisement adv(nullptr, "/adv");
    BleManager::instance()->add(&adv);
    EVENTUALLY_COMPARE(proxy.activeInstances(), uchar(1));
    QCOMPARE(proxy.supportedInstances(), uchar(4));
}

QTEST_GUILESS_MAIN(tst_manager_proxies)
#include "tst_manager_proxies.moc"
