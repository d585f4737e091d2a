#include "GattTree.h"
#include "RawBusClient.h"

#include <QtTest>

namespace {

QString unknownProperty()
{
    return "org.freedesktop.DBus.Error.UnknownProperty"_qs;
}

QString unknownInterface()
{
    return "org.freedesktop.DBus.Error.UnknownInterface"_qs;
}

} // namespace

/** Declares anew what the bus reads, under types of their own too. */
class OtherService : public GattService
{
    Q_OBJECT
    Q_PROPERTY(bool Primary READ isPrimary)

public:
    using GattService::GattService;
    static bool isPrimary() { return false; }
};

class OtherCharacteristic : public GattCharacteristic
{
    Q_OBJECT
    Q_PROPERTY(QStringList Flags READ words)
    Q_PROPERTY(int UUID READ number)

public:
    using GattCharacteristic::GattCharacteristic;
    static QStringList words() { return {"encrypt-read"_qs, "indicate"_qs}; }
    static int number() { return 7; }
};

class OtherDescriptor : public GattDescriptor
{
    Q_OBJECT
    Q_PROPERTY(QByteArray Value READ bytes)

public:
    using GattDescriptor::GattDescriptor;
    static QByteArray bytes() { return "other"; }
};

class tst_gatt_properties : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_tree = std::make_unique<GattTree>(); }
    void cleanup() { m_tree.reset(); }
    void everyPropertyHasItsSignature_data();
    void everyPropertyHasItsSignature();
    void valuesAreReadAtTheMomentOfTheCall();
    void getAllListsEveryProperty();
    void unknownPropertiesAreErrors_data();
    void unknownPropertiesAreErrors();
    void getAllOfAnotherInterfaceOfACharacteristicIsEmpty();
    void setChangesNoDeclaredProperty_data();
    void setChangesNoDeclaredProperty();
    void setOfAnUndeclaredNameIsReadBack();
    void aDynamicPropertyThatCannotTravelIsAnError();
    void dynamicPropertiesAreReadBackAsTheyWereSet_data();
    void dynamicPropertiesAreReadBackAsTheyWereSet();
    void anEmptySignatureIsAnsweredWithAnError();
    void setOfAnotherInterfaceIsAnsweredAndDoesNothing();
    void aSubclassThatDeclaresAPropertyAnewIsSeen();

private:
    BusMessage set(const QString& path, const QString& interface, const QString& name,
                   const QStringList& variant)
    {
        return m_client.call(path, propertiesInterface(), "Set"_qs, "ssv"_qs,
                             QStringList{interface, name} + variant);
    }
    BusMessage get(const QString& name) { return m_client.get(m_path, characteristicInterface(), name); }

    const QString m_path = "/app/aaaa_bbbb/e0"_qs;
    RawBusClient m_client;
    std::unique_ptr<GattTree> m_tree;
};

void tst_gatt_properties::everyPropertyHasItsSignature_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("interface");
    QTest::addColumn<QString>("property");
    QTest::addColumn<QString>("text");
    const auto add = [](const QString& path, const QString& interface, const QString& property,
                        const QString& text) {
        QTest::newRow(qPrintable(interface + QLatin1Char('.') + property))
            << path << interface << property << text;
    };
    const QString service = "/app/aaaa_bbbb"_qs;
    add(service, serviceInterface(), "UUID"_qs, R"(<s "aaaa-bbbb">)"_qs);
    add(service, serviceInterface(), "Primary"_qs, "<b true>"_qs);
    const QString characteristic = service + "/e0"_qs;
    add(characteristic, characteristicInterface(), "UUID"_qs, R"(<s "e0">)"_qs);
    add(characteristic, characteristicInterface(), "Service"_qs, R"(<o "/app/aaaa_bbbb">)"_qs);
    add(characteristic, characteristicInterface(), "Value"_qs, "<ay []>"_qs);
    add(characteristic, characteristicInterface(), "Notifying"_qs, "<b false>"_qs);
    add(characteristic, characteristicInterface(), "Flags"_qs, R"(<as ["read", "write", "notify"]>)"_qs);
    const QString descriptor = characteristic + "/desc0"_qs;
    add(descriptor, descriptorInterface(), "UUID"_qs, R"(<s "2901">)"_qs);
    add(descriptor, descriptorInterface(), "Characteristic"_qs, R"(<o "/app/aaaa_bbbb/e0">)"_qs);
    add(descriptor, descriptorInterface(), "Value"_qs, "<ay []>"_qs);
    add(descriptor, descriptorInterface(), "Flags"_qs, R"(<as ["read", "write"]>)"_qs);
}

void tst_gatt_properties::everyPropertyHasItsSignature()
{
    QFETCH(QString, path);
    QFETCH(QString, interface);
    QFETCH(QString, property);
    const BusMessage reply = m_client.get(path, interface, property);
    QCOMPARE(reply.type, "method_return"_qs);
    QCOMPARE(reply.signature, "v"_qs);
    QTEST(reply.text, "text");
}

void tst_gatt_properties::valuesAreReadAtTheMomentOfTheCall()
{
    m_tree->plain->setValue("value");
    QCOMPARE(get("Value"_qs).text, "<ay []>"_qs);
    m_tree->plain->ReadValue({});
    QCOMPARE(get("Value"_qs).bytes(), QByteArray("value"));
    m_tree->plain->ReadValue(at(3));
    QCOMPARE(get("Value"_qs).bytes(), QByteArray("ue"));
    m_tree->plain->StartNotify();
    QCOMPARE(get("Notifying"_qs).text, "<b true>"_qs);
    m_tree->plain->StopNotify();
    QCOMPARE(get("Notifying"_qs).text, "<b false>"_qs);
    const QString descriptor = m_tree->descriptor->dbusPath();
    m_tree->descriptor->WriteValue(numberedBytes(600), {});
    QCOMPARE(m_client.get(descriptor, descriptorInterface(), "Value"_qs).bytes(), numberedBytes(600));
}

void tst_gatt_properties::getAllListsEveryProperty()
{
    const BusMessage characteristic = m_client.getAll(m_path, characteristicInterface());
    QCOMPARE(characteristic.signature, "a{sv}"_qs);
    QCOMPARE(
        characteristic.text,
        R"({"Flags": <as ["read", "write", "notify"]>, "Notifying": <b false>, "Service": <o "/app/aaaa_bbbb">, )"
        R"("UUID": <s "e0">, "Value": <ay []>})"_qs);
    const BusMessage service = m_client.getAll("/app/aaaa_bbbb"_qs, serviceInterface());
    QCOMPARE(service.text, R"({"Primary": <b true>, "UUID": <s "aaaa-bbbb">})"_qs);
    const BusMessage descriptor = m_client.getAll(m_path + "/desc0"_qs, descriptorInterface());
    QCOMPARE(descriptor.body.at(0).toArray().size(), 4);
}

void tst_gatt_properties::unknownPropertiesAreErrors_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("interface");
    QTest::addColumn<QString>("property");
    QTest::addColumn<QString>("error");
    QTest::newRow("name") << m_path << characteristicInterface() << "Unknown"_qs << unknownProperty();
    QTest::newRow("letter case") << m_path << characteristicInterface() << "uuid"_qs << unknownProperty();
    QTest::newRow("empty name") << m_path << characteristicInterface() << QString() << unknownProperty();
    QTest::newRow("interface") << m_path << descriptorInterface() << "UUID"_qs << unknownInterface();
    QTest::newRow("interface's letter case") << m_path << "org.bluez.gattcharacteristic1"_qs
                                             << "UUID"_qs << unknownInterface();
    QTest::newRow("service's Device")
        << "/app/aaaa_bbbb"_qs << serviceInterface() << "Device"_qs << unknownProperty();
    QTest::newRow("service's Handle")
        << "/app/aaaa_bbbb"_qs << serviceInterface() << "Handle"_qs << unknownProperty();
    QTest::newRow("descriptor's name")
        << m_path + "/desc0"_qs << descriptorInterface() << "Unknown"_qs << unknownProperty();
}

void tst_gatt_properties::unknownPropertiesAreErrors()
{
    QFETCH(QString, path);
    QFETCH(QString, interface);
    QFETCH(QString, property);
    const BusMessage reply = m_client.get(path, interface, property);
    QCOMPARE(reply.type, "error"_qs);
    QTEST(reply.errorName, "error");
    QVERIFY(!reply.errorText.isEmpty());
}

void tst_gatt_properties::getAllOfAnotherInterfaceOfACharacteristicIsEmpty()
{
    const BusMessage reply = m_client.getAll(m_path, descriptorInterface());
    QCOMPARE(reply.signature, "a{sv}"_qs);
    QCOMPARE(reply.text, "{}"_qs);
}

void tst_gatt_properties::setChangesNoDeclaredProperty_data()
{
    QTest::addColumn<QString>("property");
    QTest::addColumn<QStringList>("variant");
    QTest::newRow("Notifying") << "Notifying"_qs << QStringList{"b"_qs, "true"_qs};
    QTest::newRow("UUID") << "UUID"_qs << QStringList{"s"_qs, "other"_qs};
    QTest::newRow("Value") << "Value"_qs << QStringList{"ay"_qs, "61"_qs};
    QTest::newRow("Flags") << "Flags"_qs << QStringList{"as"_qs, "0"_qs};
    QTest::newRow("Service") << "Service"_qs << QStringList{"o"_qs, "/"_qs};
}

void tst_gatt_properties::setChangesNoDeclaredProperty()
{
    QFETCH(QString, property);
    QFETCH(QStringList, variant);
    const QString before = m_client.getAll(m_path, characteristicInterface()).text;
    const BusMessage reply = set(m_path, characteristicInterface(), property, variant);
    QCOMPARE(reply.type, "method_return"_qs);
    QCOMPARE(m_client.getAll(m_path, characteristicInterface()).text, before);
    QVERIFY(!m_tree->plain->notifying());
}

void tst_gatt_properties::setOfAnUndeclaredNameIsReadBack()
{
    QCOMPARE(set(m_path, characteristicInterface(), "Note"_qs, {"s"_qs, "kept"_qs}).type, "method_return"_qs);
    QCOMPARE(get("Note"_qs).text, R"(<s "kept">)"_qs);
    set(m_path, characteristicInterface(), "Note"_qs, {"u"_qs, "7"_qs});
    QCOMPARE(get("Note"_qs).text, "<u 7>"_qs);
    QCOMPARE(m_tree->plain->property("Note"), QVariant(7U));
}

void tst_gatt_properties::aDynamicPropertyThatCannotTravelIsAnError()
{
    m_tree->plain->setProperty("Pointer", QVariant::fromValue<QObject*>(this));
    QCOMPARE(get("Pointer"_qs).errorName, unknownProperty());
}

void tst_gatt_properties::dynamicPropertiesAreReadBackAsTheyWereSet_data()
{
    QTest::addColumn<QStringList>("variant");
    QTest::addColumn<QString>("text");
    const auto add = [](const char* name, const QStringList& variant, const QString& text) {
        QTest::newRow(name) << variant << "<%1 %2>"_qs.arg(variant.first(), text);
    };
    add("bytes", {"ay"_qs, "00ff"_qs}, "[00ff]"_qs);
    add("object path", {"o"_qs, "/"_qs}, "\"/\""_qs);
    add("signature", {"g"_qs, "a{sv}"_qs}, "\"a{sv}\""_qs);
    add("integers", {"ai"_qs, "2"_qs, "1"_qs, "-2"_qs}, "[1, -2]"_qs);
    add("no integers", {"ai"_qs, "0"_qs}, "[]"_qs);
    add("texts by text", {"a{ss}"_qs, "2"_qs, "b"_qs, "2"_qs, "a"_qs, "1"_qs}, R"({"b": "2", "a": "1"})"_qs);
    add("no texts by text", {"a{ss}"_qs, "0"_qs}, "{}"_qs);
    add("arrays", {"aai"_qs, "2"_qs, "1"_qs, "7"_qs, "0"_qs}, "[[7], []]"_qs);
    add("no structures", {"a(is)"_qs, "0"_qs}, "[]"_qs);
    add("structure", {"(qs)"_qs, "1"_qs, "x"_qs}, R"((1, "x"))"_qs);
    add("dictionary", {"a{sv}"_qs, "1"_qs, "k"_qs, "o"_qs, "/a"_qs}, R"({"k": <o "/a">})"_qs);
    add("dictionary of structures", {"a{s(ii)}"_qs, "1"_qs, "k"_qs, "1"_qs, "2"_qs}, R"({"k": (1, 2)})"_qs);
    add("variants in variants", {"v"_qs, "v"_qs, "v"_qs, "s"_qs, "deep"_qs}, R"(<v <v <s "deep">>>)"_qs);
    add("list of variants", {"av"_qs, "2"_qs, "s"_qs, "a"_qs, "(q)"_qs, "1"_qs},
        R"([<s "a">, <(q) (1)>])"_qs);
    add("structure with an empty signature", {"(g)"_qs, QString()}, R"((""))"_qs);
    add("list with an empty signature", {"av"_qs, "1"_qs, "g"_qs, QString()}, R"([<g "">])"_qs);
    add("dictionary with an empty signature", {"a{sv}"_qs, "1"_qs, "k"_qs, "g"_qs, QString()},
        R"({"k": <g "">})"_qs);
}

void tst_gatt_properties::dynamicPropertiesAreReadBackAsTheyWereSet()
{
    QFETCH(QStringList, variant);
    QCOMPARE(set(m_path, characteristicInterface(), "Note"_qs, variant).type, "method_return"_qs);
    for (int i = 0; i < 2; ++i) { // reading it uses nothing up
        const BusMessage reply = get("Note"_qs);
        QVERIFY2(reply.isReply(), qPrintable(reply.errorText));
        QTEST(reply.text, "text");
    }
}

void tst_gatt_properties::anEmptySignatureIsAnsweredWithAnError()
{
    // Qt cannot send it; but the caller is answered.
    QCOMPARE(set(m_path, characteristicInterface(), "Note"_qs, {"g"_qs, QString()}).type, "method_return"_qs);
    QCOMPARE(get("Note"_qs).errorName, unknownProperty());
}

void tst_gatt_properties::setOfAnotherInterfaceIsAnsweredAndDoesNothing()
{
    const BusMessage reply = set(m_path, descriptorInterface(), "Note"_qs, {"s"_qs, "x"_qs});
    QCOMPARE(reply.type, "method_return"_qs);
    QVERIFY(m_tree->plain->dynamicPropertyNames().isEmpty());
}

void tst_gatt_properties::aSubclassThatDeclaresAPropertyAnewIsSeen()
{
    const OtherService service(nullptr, "s"_qs, true, "/other/s"_qs);
    OtherCharacteristic characteristic(nullptr, "c"_qs, "/other/c"_qs, readWrite, nullptr);
    const OtherDescriptor descriptor(nullptr, "d"_qs, "/other/d"_qs, descriptorReadWrite);
    for (int i = 0; i < 2; ++i) { // in turn with objects of the classes themselves
        QCOMPARE(service.dbusInterfaceList().first().value("Primary"_qs), QVariant(false));
        QCOMPARE(service.dbusInterfaceList().first().value("UUID"_qs), QVariant("s"_qs));
        QCOMPARE(m_tree->service->dbusInterfaceList().first().value("Primary"_qs), QVariant(true));
        const QVariantMap properties = characteristic.dbusInterfaceList().first();
        QCOMPARE(properties, characteristic.GetAll(characteristicInterface()));
        QCOMPARE(properties.value("Flags"_qs), QVariant(OtherCharacteristic::words()));
        QCOMPARE(properties.value("UUID"_qs), QVariant("7"_qs));
        QCOMPARE(m_tree->plain->dbusInterfaceList().first().value("UUID"_qs), QVariant("e0"_qs));
        QCOMPARE(descriptor.dbusInterfaceList().first().value("Value"_qs), QVariant(QByteArray("other")));
        QCOMPARE(m_tree->descriptor->dbusInterfaceList().first().value("Value"_qs), QVariant(QByteArray()));
    }
    QVERIFY(m_client.getAll("/other/c"_qs, characteristicInterface())
                .text.startsWith(R"({"Flags": <as ["encrypt-read", "indicate"]>)"_qs));
}

QTEST_GUILESS_MAIN(tst_gatt_properties)
#include "tst_gatt_properties.moc"
