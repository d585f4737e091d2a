#include "Literals.h"
#include "RawBusClient.h"

#include <plim/peripheral/Advertisement.h>

#include <QtTest>

using plim::Advertisement;

namespace {

const QString interface = QStringLiteral("org.bluez.LEAdvertisement1");
const QString path = QStringLiteral("/adv");

/** "error PROPERTY" or "warning PROPERTY" for each problem. */
QStringList found(const Advertisement& advertisement, int limit = 31)
{
    QStringList found;
    for (const BleFinding& finding : advertisement.problems(limit, 31)) {
        found << (finding.severity == BleFinding::Error ? "error "_qs : "warning "_qs) + finding.location;
    }
    return found;
}

} // namespace

/** The layer's advertisement, as another process sees it on the bus. */
class tst_product_advertisement : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_adv.reset(); }
    void aNewOneShowsItsTypeOnly();
    void theBaseClassesSettersShowTheirProperties();
    void itsOwnFieldsAreShownOnceTheyAreSet();
    void everyFieldIsAPropertyOfItsOwn();
    void whatIsTakenBackIsHiddenAgain();
    void solicitedServicesAreNotAdvertisedOnes();
    void includesAreBluezWords();
    void nothingCanBeSet();
    void unknownNamesAreRefused();
    void introspectionIsThatOfTheBaseClass();
    void everySetterEmitsDataChangedOnce();
    void deletingItInDataChangedIsSafe();
    void withoutARegistrationChangesInPlaceEmitDataChanged();
    void problemsOfItsOwnFields();
    void itsOwnFieldsCountInThePayload();

private:
    QString all() { return m_client.getAll(path, interface).text; }

    RawBusClient m_client;
    std::unique_ptr<Advertisement> m_adv;
};

void tst_product_advertisement::init()
{
    m_adv.reset(); // before another one has its path
    m_adv = std::make_unique<Advertisement>(nullptr, path);
}

void tst_product_advertisement::aNewOneShowsItsTypeOnly()
{
    QCOMPARE(all(), "{\"Type\": <s \"peripheral\">}"_qs);
}

void tst_product_advertisement::theBaseClassesSettersShowTheirProperties()
{
    m_adv->setLocalName("name"_qs);
    m_adv->setManufacturerData({{0xffff, "x"}});
    m_adv->setServiceData({{"180f"_qs, QByteArray("y")}});
    m_adv->setServiceUUIDs({"180d"_qs});
    m_adv->setDiscoverable(true);
    QCOMPARE(all(), "{\"Discoverable\": <b true>, \"LocalName\": <s \"name\">, "
                    "\"ManufacturerData\": <a{qv} {65535: <ay [78]>}>, "
                    "\"ServiceData\": <a{sv} {\"180f\": <ay [79]>}>, \"ServiceUUIDs\": <as [\"180d\"]>, "
                    "\"Type\": <s \"peripheral\">}"_qs);
}

void tst_product_advertisement::itsOwnFieldsAreShownOnceTheyAreSet()
{
    m_adv->setSecondaryChannel(Advertisement::LECoded);
    m_adv->setDuration(3);
    m_adv->setDiscoverableTimeout(60);
    m_adv->setSolicitedServices({"1805"_qs});
    QCOMPARE(all(), "{\"DiscoverableTimeout\": <q 60>, \"Duration\": <q 3>, \"SecondaryChannel\": <s "
                    "\"Coded\">, \"SolicitUUIDs\": <as [\"1805\"]>, \"Type\": <s \"peripheral\">}"_qs);
}

void tst_product_advertisement::everyFieldIsAPropertyOfItsOwn()
{
    m_adv->setScanResponseServiceUUIDs({"180a"_qs});
    m_adv->setScanResponseSolicitedServices({"1805"_qs});
    m_adv->setScanResponseManufacturerData({{0xffff, "x"}});
    m_adv->setScanResponseServiceData({{"180f"_qs, QByteArray("y")}});
    const QMap<QString, QString> expected{
        {"ScanResponseServiceUUIDs"_qs, "<as [\"180a\"]>"_qs},
        {"ScanResponseSolicitUUIDs"_qs, "<as [\"1805\"]>"_qs},
        {"ScanResponseManufacturerData"_qs, "<a{qv} {65535: <ay [78]>}>"_qs},
        {"ScanResponseServiceData"_qs, "<a{sv} {\"180f\": <ay [79]>}>"_qs}};
    const QString shown = all();
    for (auto it = expected.cbegin(); it != expected.cend(); ++it) {
        QCOMPARE(m_client.get(path, interface, it.key()).text, *it);
        QVERIFY(shown.contains("\"%1\": %2"_qs.arg(it.key(), *it)));
    }
}

void tst_product_advertisement::whatIsTakenBackIsHiddenAgain()
{
    m_adv->setSecondaryChannel(Advertisement::LE2M);
    QCOMPARE(m_client.get(path, interface, "SecondaryChannel"_qs).text, "<s \"2M\">"_qs);
    m_adv->setSecondaryChannel(Advertisement::NoChannel);
    m_adv->setDuration(0);
    m_adv->setDiscoverableTimeout(1);
    m_adv->setDiscoverableTimeout(0);
    m_adv->setScanResponseServiceUUIDs({"180a"_qs});
    m_adv->setScanResponseServiceUUIDs({});
    QCOMPARE(all(), "{\"Type\": <s \"peripheral\">}"_qs);
    QCOMPARE(m_client.get(path, interface, "SecondaryChannel"_qs).errorName,
             "org.freedesktop.DBus.Error.UnknownProperty"_qs);
}

void tst_product_advertisement::solicitedServicesAreNotAdvertisedOnes()
{
    m_adv->setSolicitedServices({"1805"_qs});
    QCOMPARE(m_adv->solicitUUIDs(), QStringList("1805"_qs));
    QCOMPARE(m_adv->serviceUUIDs(), QStringList());
    m_adv->setServiceUUIDs({"180d"_qs});
    QCOMPARE(m_client.get(path, interface, "SolicitUUIDs"_qs).text, "<as [\"1805\"]>"_qs);
    QCOMPARE(m_client.get(path, interface, "ServiceUUIDs"_qs).text, "<as [\"180d\"]>"_qs);
}

void tst_product_advertisement::includesAreBluezWords()
{
    m_adv->setSystemIncludes(Advertisement::TxPower | Advertisement::Appearance | Advertisement::LocalName);
    QCOMPARE(m_client.get(path, interface, "Includes"_qs).text,
             "<as [\"tx-power\", \"appearance\", \"local-name\"]>"_qs);
    m_adv->setSystemIncludes({});
    QCOMPARE(m_client.get(path, interface, "Includes"_qs).text, "<as []>"_qs);
    m_adv->setIncludeTxPower(true);
    QCOMPARE(m_adv->includes(), QStringList("tx-power"_qs));
}

void tst_product_advertisement::nothingCanBeSet()
{
    m_adv->setDuration(3);
    m_adv->setLocalName("name"_qs);
    const auto set = [this](const QString& property, const QString& signature, const QString& value) {
        return m_client
            .call(path, "org.freedesktop.DBus.Properties"_qs, "Set"_qs, "ssv"_qs,
                  {interface, property, signature, value})
            .errorName;
    };
    QCOMPARE(set("Duration"_qs, "q"_qs, "4"_qs), "org.freedesktop.DBus.Error.PropertyReadOnly"_qs);
    QCOMPARE(set("LocalName"_qs, "s"_qs, "x"_qs), "org.freedesktop.DBus.Error.PropertyReadOnly"_qs);
    QCOMPARE(set("TxPower"_qs, "n"_qs, "4"_qs), "org.freedesktop.DBus.Error.UnknownProperty"_qs);
    QCOMPARE(m_adv->duration(), ushort(3));
}

void tst_product_advertisement::unknownNamesAreRefused()
{
    m_adv->setDuration(3);
    QCOMPARE(m_client.get(path, interface, "Nothing"_qs).errorName,
             "org.freedesktop.DBus.Error.UnknownProperty"_qs);
    QCOMPARE(m_client.get(path, "a.b"_qs, "Duration"_qs).errorName,
             "org.freedesktop.DBus.Error.UnknownInterface"_qs);
    QVERIFY(m_client.getAll(path, "a.b"_qs).isError());
    // Without the interface's name, D-Bus clients mean whichever has the property.
    QCOMPARE(m_client.get(path, {}, "Duration"_qs).text, "<q 3>"_qs);
}

void tst_product_advertisement::introspectionIsThatOfTheBaseClass()
{
    const GapAdvertisement base(nullptr, "/base"_qs, GapAdvertisement::SetProperties);
    const QString xml = m_client.introspect(path);
    QVERIFY(xml.contains("<interface name=\"org.bluez.LEAdvertisement1\">"_qs));
    QCOMPARE(xml, m_client.introspect("/base"_qs));
}

void tst_product_advertisement::everySetterEmitsDataChangedOnce()
{
    const QVector<std::function<void()>> setters{[this] { m_adv->setSecondaryChannel(Advertisement::LE1M); },
                                                 [this] { m_adv->setDuration(1); },
                                                 [this] { m_adv->setDiscoverableTimeout(1); },
                                                 [this] { m_adv->setSolicitedServices({}); },
                                                 [this] { m_adv->setSystemIncludes({}); },
                                                 [this] { m_adv->setScanResponseServiceUUIDs({}); },
                                                 [this] { m_adv->setScanResponseSolicitedServices({}); },
                                                 [this] { m_adv->setScanResponseManufacturerData({}); },
                                                 [this] { m_adv->setScanResponseServiceData({}); },
                                                 [this] { m_adv->setLocalName("n"_qs); },
                                                 [this] { m_adv->setLocalName({}); },
                                                 [this] { m_adv->setServiceUUIDs({}); },
                                                 [this] { m_adv->setServiceData({}); },
                                                 [this] { m_adv->setManufacturerData({}); }};
    const QSignalSpy changes(m_adv.get(), &GapAdvertisement::dataChanged);
    for (int i = 0; i < setters.size(); ++i) {
        setters[i]();
        QCOMPARE(changes.size(), i + 1);
    }
}

void tst_product_advertisement::deletingItInDataChangedIsSafe()
{
    connect(m_adv.get(), &GapAdvertisement::dataChanged, this, [this] { m_adv.reset(); });
    m_adv->setManufacturerData({{1, "x"}});
    QVERIFY(!m_adv);
    init();
    connect(m_adv.get(), &GapAdvertisement::dataChanged, this, [this] { m_adv.reset(); });
    m_adv->setDuration(3);
    QVERIFY(!m_adv);
}

void tst_product_advertisement::withoutARegistrationChangesInPlaceEmitDataChanged()
{
    m_client.match("type='signal',interface='org.freedesktop.DBus.Properties',path='/adv'"_qs);
    m_adv->setUpdateMode(Advertisement::InPlace);
    QCOMPARE(m_adv->updateMode(), Advertisement::InPlace);
    const QSignalSpy changes(m_adv.get(), &GapAdvertisement::dataChanged);
    m_adv->setManufacturerData({{1, "x"}});
    QCOMPARE(changes.size(), 1);
    m_client.ping();
    QCOMPARE(m_client.takeSignals().size(), 0);
}

void tst_product_advertisement::problemsOfItsOwnFields()
{
    QCOMPARE(found(*m_adv), QStringList());
    m_adv->setSecondaryChannel(Advertisement::LE1M);
    m_adv->setDiscoverableTimeout(60);
    m_adv->setSolicitedServices({"no uuid"_qs});
    m_adv->setScanResponseServiceUUIDs({"none"_qs});
    m_adv->setScanResponseManufacturerData({{1, {}}});
    m_adv->setScanResponseServiceData({{"180f"_qs, 7}});
    m_adv->setSystemIncludes(Advertisement::LocalName | Advertisement::Appearance);
    m_adv->setLocalName("name"_qs);
    m_adv->setAppearance(1);
    QCOMPARE(found(*m_adv),
             (QStringList{"error SolicitUUIDs"_qs, "error ScanResponseServiceUUIDs"_qs,
                          "error ScanResponseManufacturerData"_qs, "error ScanResponseServiceData"_qs,
                          "error LocalName"_qs, "error Appearance"_qs, "warning DiscoverableTimeout"_qs,
                          "warning SecondaryChannel"_qs}));
    init();
    m_adv->setDiscoverable(true);
    m_adv->setTimeout(30);
    m_adv->setDiscoverableTimeout(31);
    QCOMPARE(found(*m_adv), QStringList("error DiscoverableTimeout"_qs));
}

void tst_product_advertisement::itsOwnFieldsCountInThePayload()
{
    m_adv->setManufacturerData({{0xffff, QByteArray(23, 'x')}}); // 27 bytes
    m_adv->setSolicitedServices({"1805"_qs});                    // 4
    QCOMPARE(found(*m_adv), QStringList());
    m_adv->setSolicitedServices({"1805"_qs, "1806"_qs});
    QCOMPARE(found(*m_adv), QStringList("error payload"_qs));
    m_adv->setSolicitedServices({});
    m_adv->setSystemIncludes(Advertisement::Appearance); // 4
    QCOMPARE(found(*m_adv), QStringList());
    QCOMPARE(found(*m_adv, 30), QStringList("error payload"_qs));
    m_adv->setScanResponseManufacturerData({{0xffff, QByteArray(27, 'x')}}); // 31
    QCOMPARE(found(*m_adv), QStringList());
    m_adv->setScanResponseManufacturerData({{0xffff, QByteArray(28, 'x')}});
    QCOMPARE(found(*m_adv), QStringList("error scan response"_qs));
}

QTEST_GUILESS_MAIN(tst_product_advertisement)
#include "tst_product_advertisement.moc"
