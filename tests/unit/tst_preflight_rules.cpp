#include "AdvertisementPreflight.h"
#include "AdvertisementProperty.h"
#include "GattPreflight.h"
#include "Literals.h"

#include <QtTest>

namespace {

/** A characteristic in a service in an application, without findings. */
GattSnapshot soundTree()
{
    GattSnapshot characteristic;
    characteristic.kind = GattSnapshot::Characteristic;
    characteristic.path = "/app/180f/2a19";
    characteristic.uuid = "2a19";
    GattSnapshot service;
    service.kind = GattSnapshot::Service;
    service.path = "/app/180f";
    service.uuid = "180f";
    service.children = {characteristic};
    GattSnapshot app;
    app.path = "/app";
    app.children = {service};
    return app;
}

/** "error LOCATION" or "warning LOCATION" for each finding. */
QStringList listed(const BleFindings& findings)
{
    QStringList list;
    for (const BleFinding& finding : findings) {
        list << (finding.severity == BleFinding::Error ? "error " : "warning ") + finding.location;
    }
    return list;
}

QStringList foundIn(const GattSnapshot& app)
{
    return listed(GattPreflight::findings(app));
}

QStringList foundIn(const AdvertisementSnapshot& adv)
{
    return listed(AdvertisementPreflight::findings(adv, 31, 31));
}

} // namespace

/** The rules of problems(), on values alone: without a bus, without objects. */
class tst_preflight_rules : public QObject
{
    Q_OBJECT

private slots:
    void aSoundTreeHasNoFinding();
    void eachStateOfAnExportHasItsOwnFinding_data();
    void eachStateOfAnExportHasItsOwnFinding();
    void aMissingPathHidesThePathsBelow();
    void ofADisplacedObjectNothingElseIsSaid();
    void aNotifierNeedsAValue();
    void aSoundAdvertisementHasNoFinding();
    void onlyShownPropertiesAreJudged();
    void theWholePayloadIsCounted();
    void everyPropertyNameExists();
};

void tst_preflight_rules::aSoundTreeHasNoFinding()
{
    QCOMPARE(foundIn(soundTree()), QStringList());
}

void tst_preflight_rules::eachStateOfAnExportHasItsOwnFinding_data()
{
    QTest::addColumn<int>("state");
    QTest::addColumn<QString>("message");
    QTest::newRow("invalid") << int(Preflight::InvalidPath)
                             << "This is not a valid object path and cannot be exported";
    QTest::newRow("no bus") << int(Preflight::NoBus) << "There is no connection to the system bus";
    QTest::newRow("taken") << int(Preflight::PathTaken)
                           << "It is not exported: the path was taken when it was made";
}

void tst_preflight_rules::eachStateOfAnExportHasItsOwnFinding()
{
    QFETCH(int, state);
    QFETCH(QString, message);
    GattSnapshot app = soundTree();
    app.exportState = Preflight::ExportState(state);
    const BleFindings ofTree = GattPreflight::findings(app);
    QCOMPARE(listed(ofTree), QStringList("error /app"));
    QCOMPARE(ofTree.first().message, message);

    AdvertisementSnapshot adv;
    adv.path = "/adv";
    adv.exportState = Preflight::ExportState(state);
    const BleFindings ofAdvertisement = AdvertisementPreflight::findings(adv, 31, 31);
    QCOMPARE(listed(ofAdvertisement), QStringList("error /adv"));
    QCOMPARE(ofAdvertisement.first().message, message);
}

void tst_preflight_rules::aMissingPathHidesThePathsBelow()
{
    GattSnapshot app = soundTree();
    GattSnapshot& service = app.children.front();
    service.children.front().exportState = Preflight::PathTaken;
    QCOMPARE(foundIn(app), QStringList("error /app/180f/2a19"));
    service.exportState = Preflight::PathTaken;
    QCOMPARE(foundIn(app), QStringList("error /app/180f"));
    app.exportState = Preflight::PathTaken;
    QCOMPARE(foundIn(app), QStringList("error /app"));
}

void tst_preflight_rules::ofADisplacedObjectNothingElseIsSaid()
{
    GattSnapshot app = soundTree();
    GattSnapshot& service = app.children.front();
    service.isDisplaced = true;
    service.exportState = Preflight::PathTaken;
    service.children.front().uuid = "none";
    QCOMPARE(foundIn(app), QStringList("error /app/180f"));
}

void tst_preflight_rules::aNotifierNeedsAValue()
{
    GattSnapshot app = soundTree();
    GattSnapshot& characteristic = app.children.front().children.front();
    characteristic.notifies = true;
    QCOMPARE(foundIn(app), QStringList("warning /app/180f/2a19"));
    characteristic.hasValue = true;
    QCOMPARE(foundIn(app), QStringList());
}

void tst_preflight_rules::aSoundAdvertisementHasNoFinding()
{
    QCOMPARE(foundIn(AdvertisementSnapshot()), QStringList());
}

void tst_preflight_rules::onlyShownPropertiesAreJudged()
{
    AdvertisementSnapshot adv;
    adv.txPower = 21;
    QCOMPARE(foundIn(adv), QStringList());
    adv.shownProperties << AdvertisementProperty::TxPower;
    QCOMPARE(foundIn(adv), QStringList("error TxPower"));
}

void tst_preflight_rules::theWholePayloadIsCounted()
{
    AdvertisementSnapshot adv;
    adv.shownProperties << AdvertisementProperty::Discoverable; // 3 bytes of flags
    adv.manufacturerData.insert(0xffff, QByteArray(24, 'x'));   // 4 bytes of header and company
    QCOMPARE(foundIn(adv), QStringList());
    adv.manufacturerData.insert(0xffff, QByteArray(25, 'x'));
    QCOMPARE(foundIn(adv), QStringList("error payload"));
}

void tst_preflight_rules::everyPropertyNameExists()
{
    using namespace AdvertisementProperty;
    const QStringList names{Appearance,  Data,        ScanData,         Discoverable, Includes,
                            LocalName,   MaxInterval, MinInterval,      Timeout,      ManufacturerData,
                            ServiceData, TxPower,     SecondaryChannel, Type,         ServiceUUIDs};
    for (const QString& name : names) {
        QVERIFY2(GapAdvertisement::staticMetaObject.indexOfProperty(name.toLatin1()) >= 0, qPrintable(name));
    }
}

QTEST_GUILESS_MAIN(tst_preflight_rules)
#include "tst_preflight_rules.moc"
