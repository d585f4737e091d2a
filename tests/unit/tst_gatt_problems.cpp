#include "GattApplication.h"
#include "LogCapture.h"

#include <QtTest>

using Char = GattCharacteristic;
using Desc = GattDescriptor;

namespace {

const QString serviceUuid = QStringLiteral("6e610001-31c7-4b1a-9f0e-1a3cf2a7d001");
const QString valueUuid = QStringLiteral("6e610002-31c7-4b1a-9f0e-1a3cf2a7d001");
const QString servicePath = QStringLiteral("/app/6e610001_31c7_4b1a_9f0e_1a3cf2a7d001");
const QString valuePath = servicePath + QStringLiteral("/6e610002_31c7_4b1a_9f0e_1a3cf2a7d001");

/** An application at /app with a service. */
struct Tree
{
    GattApplication app{nullptr, "/app", "org.plim.problems"};
    GattService* service = app.createService(serviceUuid, true);
};

/** "error PATH" or "warning PATH" for each finding. */
QStringList found(const GattApplication& app)
{
    QStringList found;
    for (const BleFinding& finding : app.problems()) {
        found << (finding.severity == BleFinding::Error ? "error " : "warning ") + finding.location;
    }
    return found;
}

/** What is said of the only finding. */
QString said(const GattApplication& app)
{
    const BleFindings problems = app.problems();
    return problems.size() == 1 ? problems.at(0).message : QString("%1 findings").arg(problems.size());
}

} // namespace

/** What an application tells of its own problems. */
class tst_gatt_problems : public QObject
{
    Q_OBJECT

private slots:
    void aSoundTreeHasNone();
    void anEmptyApplicationIsRefused();
    void textThatIsNoUuidIsRefused_data();
    void textThatIsNoUuidIsRefused();
    void everyFormOfAUuidIsFine_data();
    void everyFormOfAUuidIsFine();
    void theDaemonsOwnServicesAreRefused_data();
    void theDaemonsOwnServicesAreRefused();
    void whatHasNoFlagIsRefused();
    void bitsThatAreNoFlagCountForNothing();
    void aNotifierWithoutAValueIsSuspicious();
    void aClientConfigurationByHandIsSuspicious_data();
    void aClientConfigurationByHandIsSuspicious();
    void aPathThatIsTakenIsFound();
    void aPathThatIsNoneIsFoundOnce();
    void belowTheRootPathNothingCanBeExported();
    void aBadPathHidesOnlyTheOnesBelow();
    void collidingPathsAreFound();
    void aSecondChildWithTheSameUuidIsFound();
    void aSecondDescriptorWithTheSameUuidIsFound();
    void whatHasBeenRepairedIsFine();
    void lookingWritesNoLogLine();
    void aFindingIsOneLine();
};

void tst_gatt_problems::aSoundTreeHasNone()
{
    const Tree tree;
    Char* value = tree.service->createCharacteristic(valueUuid, Char::Read | Char::Write | Char::Notify);
    value->setValue("1");
    value->addDescriptor("2901", Desc::Read | Desc::Write);
    QCOMPARE(found(tree.app), QStringList());
}

void tst_gatt_problems::anEmptyApplicationIsRefused()
{
    const GattApplication app(nullptr, "/app", "org.plim.problems");
    QCOMPARE(found(app), QStringList("error /app"));
    QCOMPARE(said(app), QString("The application has no service"));
}

void tst_gatt_problems::textThatIsNoUuidIsRefused_data()
{
    QTest::addColumn<QString>("text");
    for (const char* text :
         {"nonsense", "", "180", "180g", "018f0", "0x180", "0x180f1", "180f180", "0x0x180f", "+80f",
          "0000180f_0000_1000_8000_00805f9b34fb", "0000180f-0000-1000-8000-00805f9b34f",
          "0000180f-0000-1000-8000-00805f9b34fbb", "0000180f0000-1000-8000-00805f9b-34fb",
          "g000180f-0000-1000-8000-00805f9b34fb", "0000180f-0000-1000-8000-00805f9b34fg",
          "0000180f-0000-1000-8000-0g805f9b34fb"}) {
        QTest::newRow(text) << QString(text);
    }
}

void tst_gatt_problems::textThatIsNoUuidIsRefused()
{
    QFETCH(QString, text);
    const Tree tree;
    tree.service->createCharacteristic(valueUuid, Char::Read)->addDescriptor(text, Desc::Read);
    QCOMPARE(found(tree.app), QStringList("error " + valuePath + "/desc0"));
    QCOMPARE(said(tree.app), '"' + text + "\" is not a valid UUID");
}

void tst_gatt_problems::everyFormOfAUuidIsFine_data()
{
    QTest::addColumn<QString>("text");
    for (const char* text : {"180f", "180F", "0x180f", "0X180F", "0000180f", "0x0000180f", "feedbeef",
                             "0000180f-0000-1000-8000-00805f9b34fb", "0000180F-0000-1000-8000-00805F9B34FB",
                             "6e610001-31c7-4b1a-9f0e-1a3cf2a7d001"}) {
        QTest::newRow(text) << QString(text);
    }
}

void tst_gatt_problems::everyFormOfAUuidIsFine()
{
    QFETCH(QString, text);
    GattApplication app(nullptr, "/app", "org.plim.problems");
    app.createService(text, true)->createCharacteristic(text, Char::Read)->addDescriptor(text, Desc::Read);
    QCOMPARE(found(app), QStringList());
}

void tst_gatt_problems::theDaemonsOwnServicesAreRefused_data()
{
    QTest::addColumn<QString>("text");
    for (const char* text : {"1800", "0x1801", "00001800", "00001801-0000-1000-8000-00805F9B34FB"}) {
        QTest::newRow(text) << QString(text);
    }
}

void tst_gatt_problems::theDaemonsOwnServicesAreRefused()
{
    QFETCH(QString, text);
    GattApplication app(nullptr, "/app", "org.plim.problems");
    const GattService* service = app.createService(text, true);
    QCOMPARE(found(app), QStringList("error " + service->dbusPath()));
    QCOMPARE(said(app), QString("BlueZ keeps the UUIDs 0x1800 and 0x1801 for itself"));
}

void tst_gatt_problems::whatHasNoFlagIsRefused()
{
    const Tree tree;
    tree.service->createCharacteristic(valueUuid, Char::Option(0))->addDescriptor("2901", Desc::Option(0));
    QCOMPARE(found(tree.app), QStringList({"error " + valuePath, "error " + valuePath + "/desc0"}));
}

void tst_gatt_problems::bitsThatAreNoFlagCountForNothing()
{
    const Tree tree;
    tree.service->createCharacteristic(valueUuid, Char::Option(0x100))
        ->addDescriptor("2901", Desc::Option(0x4));
    QCOMPARE(found(tree.app), QStringList({"error " + valuePath, "error " + valuePath + "/desc0"}));
}

void tst_gatt_problems::aNotifierWithoutAValueIsSuspicious()
{
    const Tree tree;
    Char* notifier = tree.service->createCharacteristic(valueUuid, Char::Notify);
    QCOMPARE(found(tree.app), QStringList("warning " + valuePath));
    notifier->setReadCallback([] { return QByteArray("1"); });
    QCOMPARE(found(tree.app), QStringList());
    notifier->setReadCallback({});
    QCOMPARE(found(tree.app), QStringList("warning " + valuePath));
    notifier->setValue(QByteArray(""));
    QCOMPARE(found(tree.app), QStringList());

    // Held back while a page is selected, it is set all the same.
    Char* page = tree.service->createCharacteristic("0003", Char::Write);
    page->setValue("1");
    Char* paged = tree.service->createCharacteristic("0004", Char::Notify, page);
    QCOMPARE(found(tree.app), QStringList("warning " + servicePath + "/0004"));
    paged->setValue("1");
    QCOMPARE(found(tree.app), QStringList());
}

void tst_gatt_problems::aClientConfigurationByHandIsSuspicious_data()
{
    QTest::addColumn<QString>("text");
    for (const char* text : {"2902", "0x2902", "00002902-0000-1000-8000-00805f9b34fb"}) {
        QTest::newRow(text) << QString(text);
    }
}

void tst_gatt_problems::aClientConfigurationByHandIsSuspicious()
{
    QFETCH(QString, text);
    const Tree tree;
    Char* value = tree.service->createCharacteristic(valueUuid, Char::Read);
    value->addDescriptor("2901", Desc::Read);
    value->addDescriptor(text, Desc::Read | Desc::Write);
    QCOMPARE(found(tree.app), QStringList("warning " + valuePath + "/desc1"));
}

void tst_gatt_problems::aPathThatIsTakenIsFound()
{
    const LogCapture log;
    auto first = std::make_unique<GattApplication>(nullptr, "/app", "org.plim.problems");
    GattApplication second(nullptr, "/app", "org.plim.problems");
    first->createService(serviceUuid, true);
    second.createService(valueUuid, true);
    QCOMPARE(found(*first), QStringList());
    QCOMPARE(found(second), QStringList("error /app"));
    QCOMPARE(said(second), QString("It is not exported: the path was taken when it was made"));
    first.reset(); // a free path is not taken by itself
    QCOMPARE(found(second), QStringList("error /app"));
}

void tst_gatt_problems::aPathThatIsNoneIsFoundOnce()
{
    const LogCapture log;
    for (const QString path : {"", "app", "/app/", "/a//b", "/a b", "/a-b", "/ä", "/app\n"}) {
        GattApplication app(nullptr, path, "org.plim.problems");
        app.createService(serviceUuid, true)->createCharacteristic(valueUuid, Char::Read);
        QCOMPARE(found(app), QStringList("error " + path));
        QCOMPARE(said(app), QString("This is not a valid object path and cannot be exported"));
    }
}

void tst_gatt_problems::belowTheRootPathNothingCanBeExported()
{
    const LogCapture log;
    GattApplication app(nullptr, "/", "org.plim.problems");
    app.createService("180f", true)->createCharacteristic(valueUuid, Char::Read);
    QCOMPARE(found(app), QStringList("error //180f"));
}

void tst_gatt_problems::aBadPathHidesOnlyTheOnesBelow()
{
    const LogCapture log;
    GattApplication app(nullptr, "/app", "org.plim.problems");
    for (const char* uuid : {"a b", "c d"}) {
        app.createService(uuid, true)->createCharacteristic(valueUuid, Char::Read);
    }
    QCOMPARE(found(app),
             QStringList({"error /app/a b", "error /app/a b", "error /app/c d", "error /app/c d"}));
}

void tst_gatt_problems::collidingPathsAreFound()
{
    const LogCapture log;
    const Tree tree;
    tree.service->createCharacteristic("a-b", Char::Read);
    tree.service->createCharacteristic("a_b", Char::Read);
    // Neither is a UUID, and the second one has not got the path.
    const QString path = "error " + servicePath + "/a_b";
    QCOMPARE(found(tree.app), QStringList({path, path, path}));
    QStringList said;
    for (const BleFinding& finding : tree.app.problems()) {
        said << finding.message;
    }
    QCOMPARE(said, QStringList({"\"a-b\" is not a valid UUID",
                                "It is not exported: the path was taken when it was made",
                                "\"a_b\" is not a valid UUID"}));
}

void tst_gatt_problems::aSecondChildWithTheSameUuidIsFound()
{
    const LogCapture log;
    Tree tree;
    tree.app.createService(serviceUuid, true);
    QCOMPARE(found(tree.app), QStringList({"error " + servicePath, "error " + servicePath}));
    QCOMPARE(tree.app.problems().at(0).message,
             "Another one with the UUID \"" + serviceUuid + "\" was added later and has taken its place");
    QCOMPARE(tree.app.problems().at(1).message,
             QString("It is not exported: the path was taken when it was made"));
    // What is wrong with the displaced one itself no longer matters.
    tree.service->createCharacteristic("nonsense", Char::Option(0));
    QCOMPARE(found(tree.app).size(), 2);
    delete tree.service;
    QCOMPARE(found(tree.app), QStringList("error " + servicePath));
}

void tst_gatt_problems::aSecondDescriptorWithTheSameUuidIsFound()
{
    const Tree tree;
    Char* value = tree.service->createCharacteristic(valueUuid, Char::Read);
    value->addDescriptor("2901", Desc::Read);
    value->addDescriptor("2901", Desc::Read);
    QCOMPARE(found(tree.app), QStringList("error " + valuePath + "/desc0"));
}

void tst_gatt_problems::whatHasBeenRepairedIsFine()
{
    const LogCapture log;
    Tree tree;
    GattService* wrong = tree.app.createService("nonsense", true);
    QCOMPARE(found(tree.app), QStringList("error /app/nonsense"));
    delete wrong;
    QCOMPARE(found(tree.app), QStringList());
}

void tst_gatt_problems::lookingWritesNoLogLine()
{
    const Tree tree;
    Char* value = tree.service->createCharacteristic(valueUuid, Char::Notify);
    value->addDescriptor("2902", Desc::Read);
    const LogCapture log;
    QCOMPARE(found(tree.app).size(), 2);
    QCOMPARE(log.lines().size(), 0);
}

void tst_gatt_problems::aFindingIsOneLine()
{
    const BleFinding error{BleFinding::Error, "/app", "It is wrong", "Do it right"};
    QCOMPARE(error.text(), QString("error: /app: It is wrong. Do it right."));
    const BleFinding warning{BleFinding::Warning, "TxPower", "%1 %2", "%3 %4"};
    QCOMPARE(warning.text(), QString("warning: TxPower: %1 %2. %3 %4."));
}

QTEST_GUILESS_MAIN(tst_gatt_problems)
#include "tst_gatt_problems.moc"
