#include "GattTree.h"
#include "LogCapture.h"
#include "PageModel.h"

#include <QDBusConnection>
#include <QSignalSpy>
#include <QtTest>

#include <limits>

namespace {

constexpr int intMax = std::numeric_limits<int>::max();
constexpr int intMin = std::numeric_limits<int>::min();

} // namespace

class tst_descriptor : public QObject
{
    Q_OBJECT

private slots:
    void pathsCountUpAndAreNeverReused();
    void addingTellsThatHandlesChanged();
    void twoDescriptorsWithOneUuidAreBothExported();
    void aFailedExportIsLoggedAndTheDescriptorListed();
    void flagsAreTheWordsForTheOptionBits_data();
    void flagsAreTheWordsForTheOptionBits();
    void readsFollowTheModel_data();
    void readsFollowTheModel();
    void onlyReadsAtOffsetZeroCallTheCallback();
    void writesFollowTheModel_data();
    void writesFollowTheModel();
    void aWriteTellsOnceAfterTheValueIsThere();
    void theValuePropertyShowsTheWholeValue();
};

void tst_descriptor::pathsCountUpAndAreNeverReused()
{
    GattApplication app(nullptr, "/app"_qs, QString());
    GattCharacteristic* characteristic =
        app.createService("s"_qs, true)->createCharacteristic("c"_qs, readWrite, nullptr);
    const auto add = [&](const char* uuid) {
        return characteristic->addDescriptor(QLatin1String(uuid), GattDescriptor::Read);
    };
    GattDescriptor* first = add("a");
    GattDescriptor* second = add("b");
    QCOMPARE(first->dbusPath(), "/app/s/c/desc0"_qs);
    QCOMPARE(second->dbusPath(), "/app/s/c/desc1"_qs);
    delete first;
    QCOMPARE(add("a")->dbusPath(), "/app/s/c/desc2"_qs);
    delete second;
    QCOMPARE(add("c")->dbusPath(), "/app/s/c/desc3"_qs);
}

void tst_descriptor::addingTellsThatHandlesChanged()
{
    GattTree tree;
    int listed = -1;
    connect(tree.plain, &GattCharacteristic::handlesChanged, tree.plain,
            [&] { listed = int(tree.plain->descriptors().size()); });
    const GattDescriptor* descriptor = tree.plain->addDescriptor("2904"_qs, GattDescriptor::Read);
    QCOMPARE(listed, 2);
    QCOMPARE(descriptor->parent(), tree.plain);
    QCOMPARE(descriptor->uuid(), "2904"_qs);
}

void tst_descriptor::twoDescriptorsWithOneUuidAreBothExported()
{
    GattTree tree;
    GattDescriptor* second = tree.plain->addDescriptor("2901"_qs, GattDescriptor::Read);
    QCOMPARE(QDBusConnection::systemBus().objectRegisteredAt("/app/aaaa_bbbb/e0/desc0"_qs), tree.descriptor);
    QCOMPARE(QDBusConnection::systemBus().objectRegisteredAt("/app/aaaa_bbbb/e0/desc1"_qs), second);
    const DBusManagedObjectList objects = tree.app->GetManagedObjects();
    QVERIFY(!objects.contains(QDBusObjectPath("/app/aaaa_bbbb/e0/desc0"_qs)));
    QVERIFY(objects.contains(QDBusObjectPath("/app/aaaa_bbbb/e0/desc1"_qs)));
}

void tst_descriptor::aFailedExportIsLoggedAndTheDescriptorListed()
{
    GattTree tree;
    QObject squatter;
    QVERIFY(QDBusConnection::systemBus().registerObject("/app/aaaa_bbbb/e0/desc1"_qs, &squatter));
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    GattDescriptor* descriptor = tree.plain->addDescriptor("2904"_qs, GattDescriptor::Read);
    QCOMPARE(log.lines().size(), 1);
    QCOMPARE(log.lines().at(0).level, log4cplus::ERROR_LOG_LEVEL);
    QCOMPARE(log.lines().at(0).text,
             "Failed to register GattDescriptor1 adaptor at /app/aaaa_bbbb/e0/desc1"_qs);
    QCOMPARE(log.lines().at(0).function,
             "GattDescriptor::GattDescriptor(GattCharacteristic*, const QString&, const "
             "QString&, GattDescriptor::Option)"_qs);
    QVERIFY(tree.plain->descriptors().contains(descriptor));
    QVERIFY(tree.app->GetManagedObjects().contains(QDBusObjectPath(descriptor->dbusPath())));
}

void tst_descriptor::flagsAreTheWordsForTheOptionBits_data()
{
    QTest::addColumn<int>("option");
    QTest::addColumn<QStringList>("flags");
    QTest::newRow("none") << 0 << QStringList();
    QTest::newRow("read") << 1 << QStringList{"read"_qs};
    QTest::newRow("write") << 2 << QStringList{"write"_qs};
    QTest::newRow("both") << 3 << QStringList{"read"_qs, "write"_qs};
    QTest::newRow("foreign bits") << 0x7ffffffc << QStringList();
    QTest::newRow("every bit") << -1 << QStringList{"read"_qs, "write"_qs};
}

void tst_descriptor::flagsAreTheWordsForTheOptionBits()
{
    QFETCH(int, option);
    GattTree tree;
    QTEST(tree.plain->addDescriptor("f0"_qs, GattDescriptor::Option(option))->flags(), "flags");
}

void tst_descriptor::readsFollowTheModel_data()
{
    QTest::addColumn<int>("offset");
    for (const int offset : {0, 1, 100, 511, 512, 513, 600, 999, 1000, 1001, 5000, -1, -511, -512, -513,
                             intMax, intMin, intMin + 1}) {
        QTest::addRow("%d", offset) << offset;
    }
}

void tst_descriptor::readsFollowTheModel()
{
    QFETCH(int, offset);
    GattTree tree;
    tree.descriptor->WriteValue(numberedBytes(1000), {});
    QCOMPARE(tree.descriptor->ReadValue(at(offset)), PageModel::readDescriptor(numberedBytes(1000), offset));
    QCOMPARE(tree.descriptor->value(), numberedBytes(1000));
}

void tst_descriptor::onlyReadsAtOffsetZeroCallTheCallback()
{
    GattTree tree;
    int calls = 0;
    tree.descriptor->setReadCallback([&] {
        ++calls;
        return numberedBytes(1000);
    });
    QCOMPARE(tree.descriptor->ReadValue(at(5)), QByteArray());
    QCOMPARE(tree.descriptor->ReadValue(at(-5)), QByteArray());
    QCOMPARE(calls, 0);
    QCOMPARE(tree.descriptor->ReadValue({}), numberedBytes(512));
    QCOMPARE(tree.descriptor->ReadValue(at(0)), numberedBytes(512));
    QCOMPARE(calls, 2);
    QCOMPARE(tree.descriptor->ReadValue(at(600)), numberedBytes(1000).mid(600));
    tree.descriptor->setReadCallback({});
    tree.descriptor->WriteValue("written", {});
    QCOMPARE(tree.descriptor->ReadValue({}), QByteArray("written"));
    QCOMPARE(calls, 2);
}

void tst_descriptor::writesFollowTheModel_data()
{
    QTest::addColumn<int>("offset");
    for (const int offset : {0, 1, 99, 100, 101, 5000, -1, intMax, intMin}) {
        QTest::addRow("%d", offset) << offset;
    }
}

void tst_descriptor::writesFollowTheModel()
{
    QFETCH(int, offset);
    GattTree tree;
    tree.descriptor->WriteValue(numberedBytes(100), {});
    tree.descriptor->WriteValue("new", at(offset));
    QCOMPARE(tree.descriptor->value(), PageModel::writeCharacteristic(numberedBytes(100), offset, 0, "new"));
}

void tst_descriptor::aWriteTellsOnceAfterTheValueIsThere()
{
    GattTree tree;
    QList<QByteArray> told;
    connect(tree.descriptor, &GattDescriptor::valueChanged, tree.descriptor,
            [&] { told << tree.descriptor->value(); });
    tree.descriptor->WriteValue("abc", {});
    tree.descriptor->ReadValue({});
    QCOMPARE(told, QList<QByteArray>{"abc"});
}

void tst_descriptor::theValuePropertyShowsTheWholeValue()
{
    GattTree tree;
    tree.descriptor->setReadCallback([] { return numberedBytes(1000); });
    QCOMPARE(tree.descriptor->property("Value"), QVariant(QByteArray()));
    tree.descriptor->ReadValue({});
    QCOMPARE(tree.descriptor->property("Value"), QVariant(numberedBytes(1000)));
    const QVariantMap properties = tree.descriptor->dbusInterfaceList().value(descriptorInterface());
    QCOMPARE(properties.keys(), (QStringList{"Characteristic"_qs, "Flags"_qs, "UUID"_qs, "Value"_qs}));
    QCOMPARE(properties.value("Value"_qs), QVariant(numberedBytes(1000)));
    QCOMPARE(properties.value("Characteristic"_qs).value<QDBusObjectPath>(),
             QDBusObjectPath("/app/aaaa_bbbb/e0"_qs));
    QCOMPARE(properties.value("UUID"_qs), QVariant("2901"_qs));
}

QTEST_GUILESS_MAIN(tst_descriptor)
#include "tst_descriptor.moc"
