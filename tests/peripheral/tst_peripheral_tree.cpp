#include "GattTree.h"
#include "RawBusClient.h"

#include <plim/peripheral.h>

#include <QDBusConnection>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QtTest>

#include <algorithm>

using plim::Access;

namespace {

const QString reportUuid = QStringLiteral("2a4d");

} // namespace

class tst_peripheral_tree : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_app.reset(); }
    void aTreeListsBothKindsByTheirUuids();
    void eachNewObjectIsToldOnce();
    void anAccessIsShownAsFlags();
    void severalCharacteristicsWithOneUuidStandSideBySide();
    void severalServicesAndDescriptorsToo();
    void theSameElementTwiceTakesThePlaceOfTheFirst();
    void aDyingServiceStillNamesItselfToItsCharacteristics();
    void whatIsNotAskedForIsAbsent();
    void aHandleIsShownOnceItIsSet();
    void aChosenHandleIsKept();
    void strangersCannotMoveAHandle();
    void includedServicesAreShownInTheirOrder();
    void aDeletedServiceIsIncludedNoLonger();
    void handlesAndIncludesAreShownTogether();
    void trackedSubscribersShowNotifyAcquired();
    void busctlIntrospectsEveryForm();

private:
    BusMessage managedObjects()
    {
        return m_client.call("/app"_qs, "org.freedesktop.DBus.ObjectManager"_qs, "GetManagedObjects"_qs);
    }
    /** The entry of an object in what BlueZ asks for, for instance {"Primary": <b true>, "UUID": <s "1812">}.
     */
    QString shown(const QString& path)
    {
        const QRegularExpression entry("\"%1\": \\{\"[^\"]*\": (\\{[^}]*\\})\\}"_qs.arg(path));
        return entry.match(managedObjects().text).captured(1);
    }
    static QStringList namesIn(const QString& text)
    {
        static const QRegularExpression name("\"([A-Za-z0-9_/]+)\": [<{]"_qs);
        QStringList names;
        for (auto it = name.globalMatch(text); it.hasNext();) {
            names << it.next().captured(1);
        }
        return names;
    }
    BusMessage setHandle(const QString& signature, const QString& value)
    {
        return m_client.call(m_service->dbusPath(), propertiesInterface(), "Set"_qs, "ssv"_qs,
                             {serviceInterface(), "Handle"_qs, signature, value});
    }

    RawBusClient m_client;
    std::unique_ptr<GattApplication> m_app;
    plim::Service* m_service = nullptr;
};

void tst_peripheral_tree::init()
{
    m_app = std::make_unique<GattApplication>(nullptr, "/app"_qs, "org.example.Peripheral"_qs);
    m_service = plim::Service::create(m_app.get(), "1812"_qs);
}

void tst_peripheral_tree::aTreeListsBothKindsByTheirUuids()
{
    auto* first = m_app->createService("1800-1"_qs, true);
    auto* last = m_app->createService("1900"_qs, false);
    QCOMPARE(m_app->services(), (QList<GattService*>{first, m_service, last}));
    QCOMPARE(m_service->dbusPath(), "/app/1812"_qs);
    QVERIFY(m_service->primary());
    auto* b = plim::Characteristic::create(m_service, "b-b"_qs, Access().read());
    auto* a = m_service->createCharacteristic("aa"_qs, readWrite);
    auto* c = m_service->createCharacteristic("cc"_qs, readWrite);
    QCOMPARE(m_service->characteristics(), (QList<GattCharacteristic*>{a, b, c}));
    QCOMPARE(b->dbusPath(), "/app/1812/b_b"_qs);
    QCOMPARE(b->uUID(), "b-b"_qs);
    // Below an object of the other kind, both ways.
    auto* own = plim::Characteristic::create(last, "aa"_qs, Access().read());
    auto* descriptor = plim::Descriptor::create(a, "2901"_qs, Access().read());
    auto* counted = b->addDescriptor("2901"_qs, GattDescriptor::Read);
    QCOMPARE(own->dbusPath(), "/app/1900/aa"_qs);
    QCOMPARE(descriptor->dbusPath(), "/app/1812/aa/2901"_qs);
    QCOMPARE(counted->dbusPath(), "/app/1812/b_b/desc0"_qs);
    const QStringList paths = namesIn(managedObjects().text).filter("/"_qs);
    QCOMPARE(paths, (QStringList{"/app/1800_1"_qs, "/app/1812"_qs, "/app/1812/aa"_qs, "/app/1812/aa/2901"_qs,
                                 "/app/1812/b_b"_qs, "/app/1812/b_b/desc0"_qs, "/app/1812/cc"_qs,
                                 "/app/1900"_qs, "/app/1900/aa"_qs}));
    delete b;
    QCOMPARE(m_service->characteristics(), (QList<GattCharacteristic*>{a, c}));
}

void tst_peripheral_tree::eachNewObjectIsToldOnce()
{
    QSignalSpy changed(m_app.get(), &GattApplication::applicationChanged);
    plim::Service::create(m_app.get(), "1900"_qs);
    QCOMPARE(changed.size(), 1);
    auto* characteristic = plim::Characteristic::create(m_service, "aa"_qs, Access().read().indicate());
    QCOMPARE(changed.size(), 2);
    auto* descriptor = plim::Descriptor::create(characteristic, "2901"_qs, Access().read());
    QCOMPARE(changed.size(), 3);
    characteristic->trackSubscribers();
    QCOMPARE(changed.size(), 3);
    delete descriptor;
    QCOMPARE(changed.size(), 4);
}

void tst_peripheral_tree::anAccessIsShownAsFlags()
{
    const Access access = Access().read(Access::Encrypted).writeWithoutResponse().indicate();
    auto* characteristic = plim::Characteristic::create(m_service, "aa"_qs, access);
    plim::Descriptor::create(characteristic, "2901"_qs,
                             Access().read().write(Access::Authenticated).notify());
    QCOMPARE(characteristic->access(), access);
    const QStringList ofCharacteristic{"encrypt-read"_qs, "write-without-response"_qs, "indicate"_qs};
    const QStringList ofDescriptor{"read"_qs, "encrypt-authenticated-write"_qs};
    QCOMPARE(characteristic->dbusInterfaceList().value(characteristicInterface()).value("Flags"_qs),
             QVariant(ofCharacteristic));
    const QString text = managedObjects().text;
    for (const QStringList& flags : {ofCharacteristic, ofDescriptor}) {
        QVERIFY2(text.contains("\"Flags\": <as [\"%1\"]>"_qs.arg(flags.join("\", \""_qs))), qPrintable(text));
    }
    QVERIFY(m_client.get(characteristic->dbusPath(), characteristicInterface(), "Flags"_qs)
                .text.contains("encrypt-read"_qs));
    QVERIFY(m_client.getAll(characteristic->dbusPath() + "/2901"_qs, descriptorInterface())
                .text.contains("encrypt-authenticated-write"_qs));
}

void tst_peripheral_tree::severalCharacteristicsWithOneUuidStandSideBySide()
{
    QList<GattCharacteristic*> reports;
    for (const QString& element : {"report1"_qs, "report2"_qs, "report3"_qs}) {
        auto* report = plim::Characteristic::create(m_service, reportUuid, Access().read(), element);
        report->setValue(element.toUtf8());
        reports << report;
    }
    auto* before = m_service->createCharacteristic("2a4c"_qs, readWrite);
    auto* behind = m_service->createCharacteristic("2a4e"_qs, readWrite);
    QCOMPARE(m_service->characteristics(),
             (QList<GattCharacteristic*>{before, reports[0], reports[1], reports[2], behind}));
    QCOMPARE(texts(m_app->problems()), QStringList());
    for (const GattCharacteristic* report : reports) {
        QCOMPARE(report->uUID(), reportUuid);
        QCOMPARE(
            m_client.call(report->dbusPath(), characteristicInterface(), "ReadValue"_qs, "a{sv}"_qs, {"0"_qs})
                .bytes(),
            report->value());
        QVERIFY(!shown(report->dbusPath()).isEmpty());
    }
    delete reports[1];
    QCOMPARE(m_service->characteristics(),
             (QList<GattCharacteristic*>{before, reports[0], reports[2], behind}));
}

void tst_peripheral_tree::severalServicesAndDescriptorsToo()
{
    auto* second = plim::Service::create(m_app.get(), "1812"_qs, true, "second"_qs);
    QCOMPARE(m_app->services(), (QList<GattService*>{m_service, second}));
    auto* characteristic = plim::Characteristic::create(second, "2a4d"_qs, Access().read());
    auto* x = plim::Descriptor::create(characteristic, "2908"_qs, Access().read(), "x"_qs);
    auto* y = plim::Descriptor::create(characteristic, "2908"_qs, Access().read(), "y"_qs);
    QCOMPARE(characteristic->descriptors(), (QList<GattDescriptor*>{x, y}));
    QCOMPARE(y->dbusPath(), "/app/second/2a4d/y"_qs);
    QCOMPARE(texts(m_app->problems()), QStringList());
}

void tst_peripheral_tree::theSameElementTwiceTakesThePlaceOfTheFirst()
{
    plim::Characteristic::create(m_service, reportUuid, Access().read(), "report"_qs);
    auto* second = plim::Characteristic::create(m_service, reportUuid, Access().read(), "report"_qs);
    QCOMPARE(m_service->characteristics(), QList<GattCharacteristic*>{second});
    QVERIFY(!m_app->problems().isEmpty());
}

void tst_peripheral_tree::aDyingServiceStillNamesItselfToItsCharacteristics()
{
    auto* report = plim::Characteristic::create(m_service, reportUuid, Access().read(), "r"_qs);
    QString path;
    QObject::connect(m_service, &QObject::destroyed, report, [&] { path = report->service().path(); });
    delete m_service;
    QCOMPARE(path, "/app/1812"_qs);
}

void tst_peripheral_tree::whatIsNotAskedForIsAbsent()
{
    auto* characteristic = plim::Characteristic::create(m_service, "aa"_qs, Access().read().notify());
    QCOMPARE(namesIn(shown(m_service->dbusPath())), (QStringList{"Primary"_qs, "UUID"_qs}));
    QCOMPARE(namesIn(shown(characteristic->dbusPath())),
             (QStringList{"Flags"_qs, "Notifying"_qs, "Service"_qs, "UUID"_qs, "Value"_qs}));
    QCOMPARE(m_client.get(m_service->dbusPath(), serviceInterface(), "Handle"_qs).errorName,
             "org.freedesktop.DBus.Error.UnknownProperty"_qs);
    QCOMPARE(
        m_client.get(characteristic->dbusPath(), characteristicInterface(), "NotifyAcquired"_qs).errorName,
        "org.freedesktop.DBus.Error.UnknownProperty"_qs);
    QCOMPARE(m_client
                 .call(characteristic->dbusPath(), characteristicInterface(), "AcquireNotify"_qs, "a{sv}"_qs,
                       {"0"_qs})
                 .errorName,
             "org.freedesktop.DBus.Error.UnknownMethod"_qs);
    // The introspection is the base class's to the letter.
    auto* plain = m_service->createCharacteristic("bb"_qs, readWriteNotify);
    QCOMPARE(m_client.introspect(characteristic->dbusPath()), m_client.introspect(plain->dbusPath()));
}

void tst_peripheral_tree::aHandleIsShownOnceItIsSet()
{
    QSignalSpy changed(m_app.get(), &GattApplication::applicationChanged);
    QCOMPARE(m_service->handle(), quint16(0));
    m_service->setHandle(0x100);
    QCOMPARE(changed.size(), 1);
    m_service->setHandle(0x100);
    QCOMPARE(changed.size(), 1);
    QCOMPARE(shown(m_service->dbusPath()),
             R"({"Handle": <q 256>, "Primary": <b true>, "UUID": <s "1812">})"_qs);
    m_service->setHandle(0x200);
    QCOMPARE(changed.size(), 2);
    QCOMPARE(m_service->handle(), quint16(0x200));
    QCOMPARE(m_client.get(m_service->dbusPath(), serviceInterface(), "Handle"_qs).text, "<q 512>"_qs);
}

void tst_peripheral_tree::aChosenHandleIsKept()
{
    m_service->setHandle(0);
    QVERIFY(managedObjects().text.contains(R"("Handle": <q 0>)"_qs));
    QSignalSpy assigned(m_service, &plim::Service::handleAssigned);
    QSignalSpy changed(m_app.get(), &GattApplication::applicationChanged);
    QCOMPARE(setHandle("q"_qs, "49"_qs).type, "method_return"_qs);
    QCOMPARE(assigned.size(), 1);
    QCOMPARE(assigned.first().first().value<quint16>(), quint16(49));
    QCOMPARE(m_service->handle(), quint16(49));
    QVERIFY(managedObjects().text.contains(R"("Handle": <q 49>)"_qs));
    // It is the daemon's word, which needs no new registration.
    QCOMPARE(changed.size(), 0);
}

void tst_peripheral_tree::strangersCannotMoveAHandle()
{
    QVERIFY(setHandle("q"_qs, "5"_qs).isError());
    m_service->setHandle(0x100);
    QSignalSpy assigned(m_service, &plim::Service::handleAssigned);
    setHandle("q"_qs, "5"_qs);
    setHandle("s"_qs, "nonsense"_qs);
    QCOMPARE(m_service->handle(), quint16(0x100));
    m_service->setHandle(0);
    setHandle("q"_qs, "0"_qs);
    setHandle("ay"_qs, "ffff"_qs);
    QCOMPARE(m_service->handle(), quint16(0));
    QCOMPARE(assigned.size(), 0);
}

void tst_peripheral_tree::includedServicesAreShownInTheirOrder()
{
    auto* battery = plim::Service::create(m_app.get(), "180f"_qs, true);
    auto* other = m_app->createService("180a"_qs, true);
    QSignalSpy changed(m_app.get(), &GattApplication::applicationChanged);
    m_service->include(battery);
    m_service->include(other);
    m_service->include(battery);
    m_service->include(nullptr);
    QCOMPARE(changed.size(), 2);
    QCOMPARE(shown(m_service->dbusPath()),
             R"({"Includes": <ao ["/app/180f", "/app/180a"]>, "Primary": <b true>, "UUID": <s "1812">})"_qs);
}

void tst_peripheral_tree::aDeletedServiceIsIncludedNoLonger()
{
    auto* battery = plim::Service::create(m_app.get(), "180f"_qs);
    auto* unreachable = plim::Service::create(m_app.get(), "no path"_qs);
    m_service->include(battery);
    m_service->include(unreachable); // an empty path in a message would end the process
    QCOMPARE(m_service->includes(), QList<QDBusObjectPath>{QDBusObjectPath("/app/180f"_qs)});
    QVERIFY(managedObjects().isReply());
    delete battery;
    QCOMPARE(m_service->includes(), QList<QDBusObjectPath>());
    QVERIFY(managedObjects().text.contains(R"("Includes": <ao []>)"_qs));
}

void tst_peripheral_tree::handlesAndIncludesAreShownTogether()
{
    auto* battery = plim::Service::create(m_app.get(), "180f"_qs);
    const auto expected =
        R"({"Handle": <q 256>, "Includes": <ao ["/app/180f"]>, "Primary": <b true>, "UUID": <s "1812">})"_qs;
    m_service->include(battery);
    managedObjects(); // Qt has taken note of the adaptors so far
    m_service->setHandle(0x100);
    QCOMPARE(shown(m_service->dbusPath()), expected);
    auto* other = plim::Service::create(m_app.get(), "1812"_qs, true, "other"_qs);
    other->setHandle(0x100);
    other->include(battery);
    QCOMPARE(shown(other->dbusPath()), shown(m_service->dbusPath()));
}

void tst_peripheral_tree::trackedSubscribersShowNotifyAcquired()
{
    auto* characteristic = plim::Characteristic::create(m_service, "aa"_qs, Access().notify());
    managedObjects();
    characteristic->trackSubscribers();
    characteristic->trackSubscribers();
    QCOMPARE(
        namesIn(shown(characteristic->dbusPath())),
        (QStringList{"Flags"_qs, "NotifyAcquired"_qs, "Notifying"_qs, "Service"_qs, "UUID"_qs, "Value"_qs}));
    QVERIFY(managedObjects().text.contains(R"("NotifyAcquired": <b false>)"_qs));
    QCOMPARE(m_client.get(characteristic->dbusPath(), characteristicInterface(), "NotifyAcquired"_qs).text,
             "<b false>"_qs);
}

void tst_peripheral_tree::busctlIntrospectsEveryForm()
{
    auto* battery = plim::Service::create(m_app.get(), "180f"_qs);
    auto* both = plim::Service::create(m_app.get(), "1813"_qs);
    auto* characteristic = plim::Characteristic::create(m_service, "aa"_qs, Access().notify());
    m_service->include(battery);
    battery->setHandle(7);
    both->include(battery);
    both->setHandle(9);
    characteristic->trackSubscribers();
    const QList<QPair<QString, QString>> expected{
        {m_service->dbusPath(), ".Includes property ao 1 \"/app/180f\" emits-change"_qs},
        {battery->dbusPath(), ".Handle property q 7 emits-change writable"_qs},
        {both->dbusPath(), ".Handle property q 9 emits-change writable"_qs},
        {both->dbusPath(), ".UUID property s \"1813\" emits-change"_qs},
        {characteristic->dbusPath(), ".AcquireNotify method a{sv} hq -"_qs},
        {characteristic->dbusPath(), ".ReadValue method a{sv} ay -"_qs},
        {characteristic->dbusPath(), ".NotifyAcquired property b false emits-change"_qs}};
    for (const auto& [path, line] : expected) {
        QProcess busctl;
        busctl.start("busctl"_qs,
                     {"--address="_qs + qEnvironmentVariable("DBUS_SYSTEM_BUS_ADDRESS"), "--no-pager"_qs,
                      "--full"_qs, "introspect"_qs, QDBusConnection::systemBus().baseService(), path});
        QTRY_COMPARE_WITH_TIMEOUT(busctl.state(), QProcess::NotRunning, 50000);
        QVERIFY2(busctl.exitCode() == 0, busctl.readAllStandardError().constData());
        QStringList lines;
        for (const QString& each :
             QString::fromUtf8(busctl.readAllStandardOutput()).split(QLatin1Char('\n'))) {
            lines << each.simplified();
        }
        QCOMPARE(lines.count(line), 1);
    }
}

QTEST_GUILESS_MAIN(tst_peripheral_tree)
#include "tst_peripheral_tree.moc"
