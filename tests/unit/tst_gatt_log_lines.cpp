#include "GattTree.h"
#include "LogCapture.h"

#include <QtTest>

#include <functional>

namespace {

int conversions = 0;

/** A value whose text is only made while a log line is built. */
struct Probe
{
};

QString line(const char* level, const QString& text, const QString& function)
{
    return "%1|%2|%3"_qs.arg(QLatin1String(level), text, function);
}

QStringList linesOf(const std::function<void()>& operation,
                    log4cplus::LogLevel level = log4cplus::TRACE_LOG_LEVEL)
{
    const LogCapture log(level);
    operation();
    QStringList texts;
    for (const LogLine& entry : log.lines()) {
        const std::string name = log4cplus::getLogLevelManager().toString(entry.level);
        texts << line(name.c_str(), entry.text, entry.function);
    }
    return texts;
}

struct Operation
{
    const char* name;
    std::function<void(GattTree&)> run;
    /** Its own entry line; lines of the operations that it calls may follow. */
    QString entry;
};

QString trace(const QString& text, const QString& function)
{
    return line("TRACE", "Enter "_qs + text, function);
}

QVector<Operation> applicationAndService()
{
    return {
        {"application dbusPath", [](GattTree& t) { t.app->dbusPath(); },
         trace("GattApplication::dbusPath: "_qs, "QString GattApplication::dbusPath() const"_qs)},
        {"services", [](GattTree& t) { t.app->services(); },
         trace("GattApplication::services: "_qs, "QList<GattService*> GattApplication::services() const"_qs)},
        {"createService primary", [](GattTree& t) { t.app->createService("1-2"_qs, true); },
         trace("GattApplication::createService: uuid: 1-2 primary: 1"_qs,
               "GattService* GattApplication::createService(const QString&, bool)"_qs)},
        {"createService secondary", [](GattTree& t) { t.app->createService("1-2"_qs, false); },
         trace("GattApplication::createService: uuid: 1-2 primary: 0"_qs,
               "GattService* GattApplication::createService(const QString&, bool)"_qs)},
        {"service uUID", [](GattTree& t) { t.service->uUID(); },
         trace("GattService::uUID: "_qs, "QString GattService::uUID() const"_qs)},
        {"primary", [](GattTree& t) { t.service->primary(); },
         trace("GattService::primary: "_qs, "bool GattService::primary() const"_qs)},
        {"service dbusPath", [](GattTree& t) { t.service->dbusPath(); },
         trace("GattService::dbusPath: "_qs, "QString GattService::dbusPath() const"_qs)},
        {"createCharacteristic",
         [](GattTree& t) { t.service->createCharacteristic("3-4"_qs, readWrite, t.control); },
         trace("GattService::createCharacteristic: uuid: 3-4"_qs,
               "GattCharacteristic* GattService::createCharacteristic(const QString&, "
               "GattCharacteristic::Option, "
               "GattCharacteristic*)"_qs)},
    };
}

QVector<Operation> characteristic()
{
    return {
        {"value", [](GattTree& t) { t.plain->value(); },
         trace("GattCharacteristic::value: "_qs, "QByteArray GattCharacteristic::value() const"_qs)},
        {"cachedValue", [](GattTree& t) { t.plain->cachedValue(); },
         trace("GattCharacteristic::cachedValue: "_qs,
               "QByteArray GattCharacteristic::cachedValue() const"_qs)},
        {"setValue", [](GattTree& t) { t.plain->setValue("v"); },
         trace("GattCharacteristic::setValue: uuid: e0"_qs,
               "void GattCharacteristic::setValue(const QByteArray&)"_qs)},
        {"ReadValue",
         [](GattTree& t) {
             t.plain->ReadValue({{"offset"_qs, 3}, {"device"_qs, "/d"_qs}});
         },
         trace("GattCharacteristic::ReadValue: uuid: e0 options: QMap((device, /d)(offset, 3))"_qs,
               "QByteArray GattCharacteristic::ReadValue(const QVariantMap&)"_qs)},
        {"ReadValue without options", [](GattTree& t) { t.plain->ReadValue({}); },
         trace("GattCharacteristic::ReadValue: uuid: e0 options: QMap()"_qs,
               "QByteArray GattCharacteristic::ReadValue(const QVariantMap&)"_qs)},
        {"WriteValue", [](GattTree& t) { t.plain->WriteValue("abc", at(1)); },
         trace("GattCharacteristic::WriteValue: uuid: e0 size: 3, options: QMap((offset, 1))"_qs,
               "void GattCharacteristic::WriteValue(const QByteArray&, const QVariantMap&)"_qs)},
        {"flags", [](GattTree& t) { t.plain->flags(); },
         trace("GattCharacteristic::flags: "_qs, "QStringList GattCharacteristic::flags() const"_qs)},
        {"uUID", [](GattTree& t) { t.plain->uUID(); },
         trace("GattCharacteristic::uUID: "_qs, "QString GattCharacteristic::uUID() const"_qs)},
        {"StartNotify", [](GattTree& t) { t.plain->StartNotify(); },
         trace("GattCharacteristic::StartNotify: "_qs, "void GattCharacteristic::StartNotify()"_qs)},
        {"StopNotify", [](GattTree& t) { t.plain->StopNotify(); },
         trace("GattCharacteristic::StopNotify: "_qs, "void GattCharacteristic::StopNotify()"_qs)},
        {"Confirm", [](GattTree& t) { t.plain->Confirm(); },
         trace("GattCharacteristic::Confirm: "_qs, "void GattCharacteristic::Confirm()"_qs)},
        {"notifying", [](GattTree& t) { t.plain->notifying(); },
         trace("GattCharacteristic::notifying: "_qs, "bool GattCharacteristic::notifying() const"_qs)},
        {"addDescriptor", [](GattTree& t) { t.plain->addDescriptor("2904"_qs, GattDescriptor::Read); },
         trace(
             "GattCharacteristic::addDescriptor: uuid: 2904"_qs,
             "GattDescriptor* GattCharacteristic::addDescriptor(const QString&, GattDescriptor::Option)"_qs)},
    };
}

QVector<Operation> descriptor()
{
    return {
        {"descriptor characteristic", [](GattTree& t) { t.descriptor->characteristic(); },
         trace("GattDescriptor::characteristic: "_qs,
               "QDBusObjectPath GattDescriptor::characteristic() const"_qs)},
        {"descriptor uuid", [](GattTree& t) { t.descriptor->uuid(); },
         trace("GattDescriptor::uuid: "_qs, "QString GattDescriptor::uuid() const"_qs)},
        {"descriptor value", [](GattTree& t) { t.descriptor->value(); },
         trace("GattDescriptor::value: "_qs, "QByteArray GattDescriptor::value() const"_qs)},
        {"descriptor ReadValue", [](GattTree& t) { t.descriptor->ReadValue(at(2)); },
         trace("GattDescriptor::ReadValue: uuid: 2901 options: QMap((offset, 2))"_qs,
               "QByteArray GattDescriptor::ReadValue(const QVariantMap&)"_qs)},
        {"descriptor WriteValue", [](GattTree& t) { t.descriptor->WriteValue("abcd", {}); },
         trace("GattDescriptor::WriteValue: uuid: 2901 size: 4, options: QMap()"_qs,
               "void GattDescriptor::WriteValue(const QByteArray&, const QVariantMap&)"_qs)},
        {"descriptor flags", [](GattTree& t) { t.descriptor->flags(); },
         trace("GattDescriptor::flags: "_qs, "QStringList GattDescriptor::flags() const"_qs)},
    };
}

/** A value whose text is made by an operation that writes a line of its own. */
struct Chatty
{
};

} // namespace

Q_DECLARE_METATYPE(Chatty)
Q_DECLARE_METATYPE(Probe)
Q_DECLARE_METATYPE(Operation)

class tst_gatt_log_lines : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void operationsOpenWithTheirEntryLineAndWriteNoOther_data();
    void operationsOpenWithTheirEntryLineAndWriteNoOther();
    void serviceOfACharacteristicEntersFirst();
    void theReleaseOfAControlEnters();
    void constructionWritesTheEntryLinesOfApplicationAndService();
    void creatingACharacteristicOrDescriptorWritesOneLine();
    void quietOperationsWriteNothing();
    void listingWritesTheEntryLinesOfWhatItReads();
    void forgettingADestroyedChildIsWrittenAtDebug();
    void entryLinesAreNotBuiltWhileTraceIsOff();
    void linesOfArgumentsThatLogStayWhole();
};

void tst_gatt_log_lines::initTestCase()
{
    QMetaType::registerConverter<Probe, QString>([](const Probe&) {
        ++conversions;
        return "probe"_qs;
    });
}

void tst_gatt_log_lines::operationsOpenWithTheirEntryLineAndWriteNoOther_data()
{
    QTest::addColumn<Operation>("operation");
    for (const Operation& operation : applicationAndService() + characteristic() + descriptor()) {
        QTest::newRow(operation.name) << operation;
    }
}

void tst_gatt_log_lines::operationsOpenWithTheirEntryLineAndWriteNoOther()
{
    QFETCH(Operation, operation);
    GattTree tree;
    QStringList lines = linesOf([&] { operation.run(tree); });
    QVERIFY(!lines.isEmpty());
    QCOMPARE(lines.takeFirst(), operation.entry);
    // A new object's own constructor and the change that it makes to the tree are told by other tests.
    if (!operation.entry.contains("::create"_qs) && !operation.entry.contains("::add"_qs)) {
        QCOMPARE(lines, QStringList());
    }
}

void tst_gatt_log_lines::serviceOfACharacteristicEntersFirst()
{
    GattTree tree;
    QCOMPARE(linesOf([&] { tree.plain->service(); }),
             (QStringList{trace("GattCharacteristic::service: "_qs,
                                "QDBusObjectPath GattCharacteristic::service() const"_qs),
                          trace("GattService::dbusPath: "_qs, "QString GattService::dbusPath() const"_qs)}));
}

void tst_gatt_log_lines::theReleaseOfAControlEnters()
{
    GattTree tree;
    const QStringList lines = linesOf([&] { tree.control->WriteValue("1", {}); });
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines.at(1), trace("GattCharacteristic::on_control_valueChanged: "_qs,
                                "void GattCharacteristic::on_control_valueChanged()"_qs));
}

void tst_gatt_log_lines::constructionWritesTheEntryLinesOfApplicationAndService()
{
    std::unique_ptr<GattApplication> app;
    QCOMPARE(
        linesOf([&] { app = std::make_unique<GattApplication>(nullptr, "/app"_qs, "org.example.A"_qs); }),
        QStringList(trace("GattApplication::GattApplication: dbusPath: /app serviceName: org.example.A"_qs,
                          "GattApplication::GattApplication(QObject*, const QString&, const QString&)"_qs)));
    const QStringList lines = linesOf([&] { app->createService("1-2"_qs, false); });
    QCOMPARE(lines.size(), 2);
    QCOMPARE(lines.at(1),
             trace("GattService::GattService: uuid: 1-2 primary: 0 dbusPath: /app/1_2"_qs,
                   "GattService::GattService(QObject*, const QString&, bool, const QString&)"_qs));
}

void tst_gatt_log_lines::creatingACharacteristicOrDescriptorWritesOneLine()
{
    GattTree tree;
    const QString changed = line("DEBUG", "Enter GattApplication::on_handlesChanged: "_qs,
                                 "void GattApplication::on_handlesChanged()"_qs);
    QCOMPARE(linesOf([&] { tree.service->createCharacteristic("3-4"_qs, readWrite, tree.control); }).mid(1),
             QStringList(changed));
    QCOMPARE(linesOf([&] { tree.plain->addDescriptor("2904"_qs, GattDescriptor::Read); }).mid(1),
             QStringList(changed));
}

void tst_gatt_log_lines::quietOperationsWriteNothing()
{
    GattTree tree;
    QCOMPARE(linesOf([&] {
                 tree.plain->setReadCallback([] { return QByteArray(); });
                 tree.plain->dbusPath();
                 tree.plain->descriptors();
                 tree.plain->notifyValueChanged();
                 tree.plain->Get("other"_qs, "Value"_qs);
                 tree.plain->GetAll("other"_qs);
                 tree.plain->Set(characteristicInterface(), "Other"_qs, QDBusVariant(1));
                 tree.descriptor->setReadCallback([] { return QByteArray(); });
                 tree.descriptor->dbusPath();
                 tree.service->characteristics();
             }),
             QStringList());
    const QStringList managed = linesOf([&] { tree.app->GetManagedObjects(); });
    QVERIFY(managed.filter("GetManagedObjects"_qs).isEmpty());
    QVERIFY(managed.filter("dbusInterfaceList"_qs).isEmpty());
    QVERIFY(managed.filter("Get:"_qs).isEmpty());
}

void tst_gatt_log_lines::listingWritesTheEntryLinesOfWhatItReads()
{
    GattApplication app(nullptr, "/app"_qs, QString());
    app.createService("2"_qs, true);
    GattCharacteristic* characteristic =
        app.createService("1"_qs, true)->createCharacteristic("c"_qs, readWrite);
    characteristic->addDescriptor("d"_qs, descriptorReadWrite);
    const QString servicePath =
        trace("GattService::dbusPath: "_qs, "QString GattService::dbusPath() const"_qs);
    const QStringList service{trace("GattService::primary: "_qs, "bool GattService::primary() const"_qs),
                              trace("GattService::uUID: "_qs, "QString GattService::uUID() const"_qs),
                              servicePath};
    const QStringList below{
        trace("GattCharacteristic::flags: "_qs, "QStringList GattCharacteristic::flags() const"_qs),
        trace("GattCharacteristic::notifying: "_qs, "bool GattCharacteristic::notifying() const"_qs),
        trace("GattCharacteristic::service: "_qs, "QDBusObjectPath GattCharacteristic::service() const"_qs),
        servicePath,
        trace("GattCharacteristic::uUID: "_qs, "QString GattCharacteristic::uUID() const"_qs),
        trace("GattCharacteristic::cachedValue: "_qs,
              "QByteArray GattCharacteristic::cachedValue() const"_qs),
        trace("GattDescriptor::characteristic: "_qs,
              "QDBusObjectPath GattDescriptor::characteristic() const"_qs),
        trace("GattDescriptor::flags: "_qs, "QStringList GattDescriptor::flags() const"_qs),
        trace("GattDescriptor::uuid: "_qs, "QString GattDescriptor::uuid() const"_qs),
        trace("GattDescriptor::value: "_qs, "QByteArray GattDescriptor::value() const"_qs)};
    for (int i = 0; i < 2; ++i) { // whatever is kept from the first time
        QCOMPARE(linesOf([&] { app.GetManagedObjects(); }), service + below + service);
    }
}

void tst_gatt_log_lines::forgettingADestroyedChildIsWrittenAtDebug()
{
    GattTree tree;
    const QString changed = line("DEBUG", "Enter GattApplication::on_handlesChanged: "_qs,
                                 "void GattApplication::on_handlesChanged()"_qs);
    QCOMPARE(linesOf([&] { delete tree.descriptor; }, log4cplus::DEBUG_LOG_LEVEL),
             (QStringList{line("DEBUG", "Enter GattCharacteristic::on_descriptorDeleted: "_qs,
                               "void GattCharacteristic::on_descriptorDeleted(QObject*)"_qs),
                          changed}));
    QCOMPARE(linesOf([&] { delete tree.plain; }, log4cplus::DEBUG_LOG_LEVEL),
             (QStringList{line("DEBUG", "Enter GattService::on_characteristicDeleted: "_qs,
                               "void GattService::on_characteristicDeleted(QObject*)"_qs),
                          changed}));
    QCOMPARE(linesOf([&] { delete tree.service; }, log4cplus::DEBUG_LOG_LEVEL),
             QStringList(line("DEBUG", "Enter GattApplication::on_serviceDeleted: "_qs,
                              "void GattApplication::on_serviceDeleted(QObject*)"_qs)));
}

void tst_gatt_log_lines::entryLinesAreNotBuiltWhileTraceIsOff()
{
    GattTree tree;
    const QVariantMap options{{"probe"_qs, QVariant::fromValue(Probe())}};
    const auto run = [&] {
        tree.plain->ReadValue(options);
        tree.plain->WriteValue("x", options);
        tree.descriptor->ReadValue(options);
        tree.descriptor->WriteValue("x", options);
    };
    conversions = 0;
    QCOMPARE(linesOf(run, log4cplus::DEBUG_LOG_LEVEL), QStringList());
    QCOMPARE(conversions, 0);
    QCOMPARE(linesOf(run).filter("(probe, probe)"_qs).size(), 4);
    QCOMPARE(conversions, 4);
}

void tst_gatt_log_lines::linesOfArgumentsThatLogStayWhole()
{
    GattTree tree;
    static GattDescriptor* other = nullptr;
    other = tree.descriptor;
    QMetaType::registerConverter<Chatty, QString>([](const Chatty&) { return other->uuid(); });
    const QStringList lines = linesOf([&] {
        tree.plain->ReadValue({{"a"_qs, QVariant::fromValue(Chatty())}, {"b"_qs, 1}});
    });
    QCOMPARE(lines,
             (QStringList{trace("GattDescriptor::uuid: "_qs, "QString GattDescriptor::uuid() const"_qs),
                          trace("GattCharacteristic::ReadValue: uuid: e0 options: QMap((a, 2901)(b, 1))"_qs,
                                "QByteArray GattCharacteristic::ReadValue(const QVariantMap&)"_qs)}));
}

QTEST_GUILESS_MAIN(tst_gatt_log_lines)
#include "tst_gatt_log_lines.moc"
