#include "Eventually.h"
#include "FakeBluez.h"
#include "Literals.h"
#include "LogCapture.h"

#include <plim/peripheral.h>

#include <QDBusConnectionInterface>
#include <QDBusVariant>
#include <QMetaProperty>
#include <QPointer>
#include <QSignalSpy>
#include <QtTest>

using plim::Adapter;

namespace {

const QString adapterInterface = QStringLiteral("org.bluez.Adapter1");
const QString advertisingInterface = QStringLiteral("org.bluez.LEAdvertisingManager1");
const QString hci0 = QStringLiteral("/org/bluez/hci0");
const QString hci1 = QStringLiteral("/org/bluez/hci1");
const QString hci2 = QStringLiteral("/org/bluez/hci2");
const QString address0 = QStringLiteral("00:AA:01:00:00:00");
const QString address1 = QStringLiteral("00:AA:01:00:00:01");

/** What BlueZ shows of an adapter. */
DBusInterfaceList shown(const QString& address)
{
    return {
        {adapterInterface,
         {{"Address"_qs, address},
          {"Alias"_qs, "sensor"_qs},
          {"Powered"_qs, true},
          {"Discoverable"_qs, true},
          {"DiscoverableTimeout"_qs, 180U},
          {"Pairable"_qs, true},
          {"PairableTimeout"_qs, 30U}}},
        {advertisingInterface,
         {{"SupportedInstances"_qs, QVariant::fromValue(uchar(4))},
          {"ActiveInstances"_qs, QVariant::fromValue(uchar(1))},
          {"SupportedSecondaryChannels"_qs, QStringList{"1M"_qs, "Coded"_qs}},
          {"SupportedCapabilities"_qs, QVariantMap{{"MaxAdvLen"_qs, QVariant::fromValue(uchar(251))},
                                                   {"MaxScnRspLen"_qs, QVariant::fromValue(uchar(31))}}}}}};
}

/** All properties in one line each. */
QStringList properties(const Adapter& adapter)
{
    QStringList lines;
    const QMetaObject& meta = Adapter::staticMetaObject;
    for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
        const QVariant value = meta.property(i).read(&adapter);
        lines << QLatin1String(meta.property(i).name()) + '=' +
                     (value.canConvert<QStringList>() ? value.toStringList().join(' ') : value.toString());
    }
    return lines;
}

/** Notes each change signal by its name. */
class Changes : public QObject
{
    Q_OBJECT

public:
    explicit Changes(const Adapter& adapter)
    {
        const QMetaMethod note = metaObject()->method(metaObject()->indexOfSlot("note()"));
        const QMetaObject& meta = Adapter::staticMetaObject;
        for (int i = meta.propertyOffset(); i < meta.propertyCount(); ++i) {
            connect(&adapter, meta.property(i).notifySignal(), this, note);
        }
    }
    QStringList taken() { return std::exchange(m_names, {}); }
    QStringList names() const { return m_names; }

private slots:
    void note()
    {
        m_names << QString::fromLatin1(sender()->metaObject()->method(senderSignalIndex()).name());
    }

private:
    QStringList m_names;
};

} // namespace

class tst_adapter : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_bluez = std::make_unique<FakeBluez>("fake"_qs); }
    void cleanup()
    {
        m_bluez.reset();
        EVENTUALLY_VERIFY(
            !QDBusConnection::systemBus().interface()->isServiceRegistered("org.bluez"_qs).value());
    }
    void theChosenOneIsShown_data();
    void theChosenOneIsShown();
    void withoutOneEverythingIsEmpty();
    void eachChangeIsToldOnce_data();
    void eachChangeIsToldOnce();
    void otherChangesAreNotTold();
    void itIsFollowedToAnotherNumber();
    void itIsFollowedAcrossARestart();
    void anyOneStaysUntilItGoes();
    void settersReachTheDaemon_data();
    void settersReachTheDaemon();
    void settersTellHowTheyEnded();
    void withoutAFunctionAFailureIsLogged();
    void settersWaitForTheDescription();
    void settersFailWithoutTheAdapter();
    void slotsMayDeleteIt();

private:
    void start()
    {
        m_bluez->objects = {{QDBusObjectPath(hci0), shown(address0)},
                            {QDBusObjectPath(hci1), shown(address1)}};
        const int before = m_bluez->descriptions;
        QVERIFY(m_bluez->appear());
        EVENTUALLY_COMPARE(m_bluez->descriptions, before + 1);
    }

    std::unique_ptr<FakeBluez> m_bluez;
};

void tst_adapter::theChosenOneIsShown_data()
{
    QTest::addColumn<QString>("choice");
    QTest::addColumn<QString>("path");
    QTest::newRow("any") << QString() << hci0;
    QTest::newRow("name") << "hci1"_qs << hci1;
    QTest::newRow("address") << address1 << hci1;
    QTest::newRow("address in lower case") << address1.toLower() << hci1;
}

void tst_adapter::theChosenOneIsShown()
{
    QFETCH(QString, choice);
    QFETCH(QString, path);
    const Adapter adapter(choice);
    start();
    EVENTUALLY_VERIFY(adapter.advertisementsLeft() == 4);
    const QStringList expected{"present=true"_qs,
                               "path="_qs + path,
                               "address="_qs + (path == hci1 ? address1 : address0),
                               "alias=sensor"_qs,
                               "powered=true"_qs,
                               "discoverable=true"_qs,
                               "discoverableTimeout=180"_qs,
                               "pairable=true"_qs,
                               "pairableTimeout=30"_qs,
                               "advertisementsLeft=4"_qs,
                               "advertisementsActive=1"_qs,
                               "maximumAdvertisingData=251"_qs,
                               "maximumScanResponseData=31"_qs,
                               "secondaryChannels=1M Coded"_qs};
    QCOMPARE(properties(adapter), expected);
    QCOMPARE(properties(Adapter(choice)), expected); // a second one knows it at once
}

void tst_adapter::withoutOneEverythingIsEmpty()
{
    const Adapter adapter("hci7"_qs);
    const QStringList empty{"present=false"_qs,
                            "path="_qs,
                            "address="_qs,
                            "alias="_qs,
                            "powered=false"_qs,
                            "discoverable=false"_qs,
                            "discoverableTimeout=0"_qs,
                            "pairable=false"_qs,
                            "pairableTimeout=0"_qs,
                            "advertisementsLeft=0"_qs,
                            "advertisementsActive=0"_qs,
                            "maximumAdvertisingData=0"_qs,
                            "maximumScanResponseData=0"_qs,
                            "secondaryChannels="_qs};
    QCOMPARE(properties(adapter), empty);
    const Adapter other;
    start();
    EVENTUALLY_VERIFY(other.isPresent());
    QCOMPARE(properties(adapter), empty);
}

void tst_adapter::eachChangeIsToldOnce_data()
{
    QTest::addColumn<QString>("interface");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QVariant>("value");
    const auto row = [](const char* tag, const QString& interface, const char* name, const QVariant& value) {
        QTest::newRow(tag) << interface << QString::fromLatin1(name) << value;
    };
    row("addressChanged", adapterInterface, "Address", "00:AA:01:00:00:0F"_qs);
    row("aliasChanged", adapterInterface, "Alias", "new"_qs);
    row("poweredChanged", adapterInterface, "Powered", false);
    row("discoverableChanged", adapterInterface, "Discoverable", false);
    row("discoverableTimeoutChanged", adapterInterface, "DiscoverableTimeout", 1U);
    row("pairableChanged", adapterInterface, "Pairable", false);
    row("pairableTimeoutChanged", adapterInterface, "PairableTimeout", 1U);
    row("advertisementsLeftChanged", advertisingInterface, "SupportedInstances",
        QVariant::fromValue(uchar(3)));
    row("advertisementsActiveChanged", advertisingInterface, "ActiveInstances",
        QVariant::fromValue(uchar(2)));
    row("maximumAdvertisingDataChanged", advertisingInterface, "SupportedCapabilities",
        QVariantMap{{"MaxAdvLen"_qs, QVariant::fromValue(uchar(31))},
                    {"MaxScnRspLen"_qs, QVariant::fromValue(uchar(31))}});
    row("maximumScanResponseDataChanged", advertisingInterface, "SupportedCapabilities",
        QVariantMap{{"MaxAdvLen"_qs, QVariant::fromValue(uchar(251))}});
    row("secondaryChannelsChanged", advertisingInterface, "SupportedSecondaryChannels", QStringList());
}

void tst_adapter::eachChangeIsToldOnce()
{
    QFETCH(QString, interface);
    QFETCH(QString, name);
    QFETCH(QVariant, value);
    const Adapter adapter("hci0"_qs);
    Changes changes(adapter);
    start();
    EVENTUALLY_VERIFY(changes.names().size() == 14);
    changes.taken();
    const QStringList before = properties(adapter);
    m_bluez->change(hci0, interface, {{name, value}});
    m_bluez->change(hci0, interface, {{name, value}});
    m_bluez->change(hci0, adapterInterface, {{"Alias"_qs, "last"_qs}});
    EVENTUALLY_COMPARE(adapter.alias(), "last"_qs);
    QStringList expected{QString::fromLatin1(QTest::currentDataTag()), "aliasChanged"_qs};
    QCOMPARE(changes.taken(), expected);
    QVERIFY(properties(adapter) != before);
}

void tst_adapter::otherChangesAreNotTold()
{
    const Adapter adapter("hci0"_qs);
    Changes changes(adapter);
    start();
    EVENTUALLY_VERIFY(adapter.isPresent());
    EVENTUALLY_VERIFY(adapter.advertisementsLeft() != 0);
    changes.taken();
    m_bluez->change(hci1, adapterInterface, {{"Alias"_qs, "other"_qs}});
    m_bluez->change(hci0, adapterInterface, {{"Discovering"_qs, true}});
    m_bluez->change(hci0, adapterInterface, {{"Alias"_qs, "last"_qs}});
    EVENTUALLY_COMPARE(adapter.alias(), "last"_qs);
    QCOMPARE(changes.taken(), QStringList("aliasChanged"_qs));
}

void tst_adapter::itIsFollowedToAnotherNumber()
{
    const Adapter adapter(address1);
    Changes changes(adapter);
    start();
    EVENTUALLY_COMPARE(adapter.advertisementsActive(), 1);
    changes.taken();
    m_bluez->remove(hci1, {adapterInterface, advertisingInterface});
    EVENTUALLY_VERIFY(!adapter.isPresent());
    QVERIFY(changes.names().contains("presentChanged"_qs) && changes.names().contains("pathChanged"_qs));
    m_bluez->add(hci1, shown("00:AA:01:00:00:0F"_qs));
    m_bluez->add(hci2, shown(address1));
    EVENTUALLY_COMPARE(adapter.path(), hci2);
    EVENTUALLY_COMPARE(adapter.advertisementsLeft(), 4);
}

void tst_adapter::itIsFollowedAcrossARestart()
{
    const Adapter adapter("hci1"_qs);
    start();
    EVENTUALLY_VERIFY(adapter.isPresent());
    m_bluez->vanish();
    EVENTUALLY_VERIFY(!adapter.isPresent());
    QCOMPARE(adapter.alias(), QString());
    start();
    EVENTUALLY_COMPARE(adapter.alias(), "sensor"_qs);
}

void tst_adapter::anyOneStaysUntilItGoes()
{
    const Adapter adapter;
    const Adapter second("hci1"_qs);
    start();
    EVENTUALLY_VERIFY(second.isPresent());
    m_bluez->remove(hci0, {adapterInterface});
    EVENTUALLY_COMPARE(adapter.path(), hci1);
    m_bluez->add(hci0, shown(address0));
    m_bluez->change(hci1, adapterInterface, {{"Alias"_qs, "last"_qs}});
    EVENTUALLY_COMPARE(second.alias(), "last"_qs);
    QCOMPARE(adapter.path(), hci1);
}

void tst_adapter::settersReachTheDaemon_data()
{
    QTest::addColumn<QString>("property");
    QTest::addColumn<QVariant>("value");
    QTest::newRow("Alias") << "alias"_qs << QVariant("new"_qs);
    QTest::newRow("Powered") << "powered"_qs << QVariant(false);
    QTest::newRow("Discoverable") << "discoverable"_qs << QVariant(true);
    QTest::newRow("DiscoverableTimeout") << "discoverableTimeout"_qs << QVariant(60U);
    QTest::newRow("Pairable") << "pairable"_qs << QVariant(true);
    QTest::newRow("PairableTimeout") << "pairableTimeout"_qs << QVariant(60U);
}

void tst_adapter::settersReachTheDaemon()
{
    QFETCH(QString, property);
    QFETCH(QVariant, value);
    Adapter adapter("hci1"_qs);
    start();
    EVENTUALLY_VERIFY(adapter.isPresent());
    const QStringList before = properties(adapter);
    QVERIFY(adapter.setProperty(property.toLatin1().constData(), value));
    EVENTUALLY_COMPARE(m_bluez->calls.size(), 1);
    const QDBusMessage& call = m_bluez->calls.constFirst();
    QCOMPARE(call.path() + ' ' + call.member() + ' ' + call.signature(), "/org/bluez/hci1 Set ssv"_qs);
    QCOMPARE(call.arguments().at(0).toString(), adapterInterface);
    QCOMPARE(call.arguments().at(1).toString(), QString::fromLatin1(QTest::currentDataTag()));
    const QVariant sent = call.arguments().at(2).value<QDBusVariant>().variant();
    QCOMPARE(sent, value);
    QCOMPARE(sent.userType(), value.userType());
    QCOMPARE(properties(adapter), before); // until the daemon announces it
}

void tst_adapter::settersTellHowTheyEnded()
{
    Adapter adapter("hci1"_qs);
    start();
    EVENTUALLY_VERIFY(adapter.isPresent());
    QStringList ends;
    adapter.setPowered(
        true, [&](const QDBusError& error) { ends << (error.isValid() ? error.name() : "done"_qs); });
    adapter.setAlias("x"_qs, [&](const QDBusError& error) { ends << error.name(); });
    adapter.setPairable(true, [](const QDBusError&) { throw 1; });
    EVENTUALLY_COMPARE(m_bluez->calls.size(), 3);
    m_bluez->send(m_bluez->calls.at(0).createReply());
    m_bluez->send(m_bluez->calls.at(1).createErrorReply("org.bluez.Error.Blocked"_qs, "Blocked"_qs));
    m_bluez->send(m_bluez->calls.at(2).createReply());
    EVENTUALLY_COMPARE(ends, QStringList({"done"_qs, "org.bluez.Error.Blocked"_qs}));
}

void tst_adapter::withoutAFunctionAFailureIsLogged()
{
    Adapter adapter("hci1"_qs);
    start();
    EVENTUALLY_VERIFY(adapter.isPresent());
    const LogCapture log;
    adapter.setPowered(true);
    adapter.setPowered(true);
    EVENTUALLY_COMPARE(m_bluez->calls.size(), 2);
    m_bluez->send(m_bluez->calls.at(0).createReply());
    m_bluez->send(m_bluez->calls.at(1).createErrorReply("org.bluez.Error.Blocked"_qs, "Blocked"_qs));
    EVENTUALLY_COMPARE(log.texts(log4cplus::WARN_LOG_LEVEL),
                       QStringList("Cannot set Powered of adapter hci1: Blocked"_qs));
}

void tst_adapter::settersWaitForTheDescription()
{
    m_bluez->objects = {{QDBusObjectPath(hci0), shown(address0)}};
    m_bluez->holdsDescription = true;
    QVERIFY(m_bluez->appear());
    Adapter adapter;
    QString end;
    adapter.setAlias("x"_qs,
                     [&](const QDBusError& error) { end = error.isValid() ? error.name() : "done"_qs; });
    QTRY_COMPARE(m_bluez->calls.size(), 1);
    adapter.setPowered(true);
    m_bluez->send(m_bluez->description(m_bluez->calls.takeFirst()));
    QTRY_COMPARE(m_bluez->calls.size(), 2);
    QCOMPARE(m_bluez->calls.at(0).arguments().at(1).toString(), "Alias"_qs);
    QCOMPARE(m_bluez->calls.at(1).arguments().at(1).toString(), "Powered"_qs);
    m_bluez->send(m_bluez->calls.at(0).createReply());
    QTRY_COMPARE(end, "done"_qs);
}

void tst_adapter::settersFailWithoutTheAdapter()
{
    Adapter adapter("hci7"_qs);
    QString end;
    adapter.setAlias("x"_qs, [&](const QDBusError& error) { end = error.name(); });
    QVERIFY(end.isEmpty());
    EVENTUALLY_COMPARE(end, "org.freedesktop.DBus.Error.UnknownObject"_qs);
    bool called = false;
    auto ending = std::make_unique<Adapter>("hci7"_qs);
    ending->setPowered(true, [&](const QDBusError&) { called = true; });
    ending.reset();
    QCoreApplication::processEvents();
    QVERIFY(!called);
}

void tst_adapter::slotsMayDeleteIt()
{
    const QPointer<Adapter> victim = new Adapter("hci0"_qs);
    connect(victim, &Adapter::aliasChanged, this, [victim] { delete victim.data(); });
    start();
    EVENTUALLY_VERIFY(!victim);
}

QTEST_GUILESS_MAIN(tst_adapter)
#include "tst_adapter.moc"
