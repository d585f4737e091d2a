#include "GattTree.h"
#include "LogCapture.h"
#include "PageModel.h"
#include "RawBusClient.h"

#include <QtTest>

namespace {

constexpr int intMin = std::numeric_limits<int>::min();
constexpr int intMax = std::numeric_limits<int>::max();

} // namespace

class tst_gatt_bad_input : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void offsetsOfEveryTypeAreTakenAsNumbers_data();
    void offsetsOfEveryTypeAreTakenAsNumbers();
    void offsetsThatAreNoNumbersStartAtZero_data();
    void offsetsThatAreNoNumbersStartAtZero();
    void offsetsBeyondEveryIntegerAreAnswered();
    void callsThatDoNotFitAreErrors_data();
    void callsThatDoNotFitAreErrors();
    void controlTextOfEveryShapeIsAnswered_data();
    void controlTextOfEveryShapeIsAnswered();
    void aMillionBytesAreWrittenAndReadBack();
    void manyCallsAtOnceAreAllAnsweredInOrder();

private:
    BusMessage read(const QString& path, const QString& interface, const QStringList& offset)
    {
        return m_client.call(path, interface, "ReadValue"_qs, "a{sv}"_qs,
                             QStringList{"1"_qs, "offset"_qs} + offset);
    }

    RawBusClient m_client;
    std::unique_ptr<GattTree> m_tree;
    std::unique_ptr<LogCapture> m_log;
};

void tst_gatt_bad_input::init()
{
    // Every line is built, so that bad input reaches the log's text as well.
    m_log = std::make_unique<LogCapture>();
    m_tree = std::make_unique<GattTree>();
    m_tree->plain->setValue(numberedBytes(700));
    m_tree->descriptor->WriteValue(numberedBytes(700), {});
}

void tst_gatt_bad_input::cleanup()
{
    m_tree.reset();
    m_log.reset();
}

void tst_gatt_bad_input::offsetsOfEveryTypeAreTakenAsNumbers_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("offset");
    const auto add = [](const char* type, const char* text, int offset) {
        QTest::addRow("%s %s", type, text)
            << QString::fromLatin1(type) << QString::fromLatin1(text) << offset;
    };
    for (const char* type : {"y", "n", "q", "i", "u", "x", "t"}) {
        add(type, "0", 0);
        add(type, "100", 100);
    }
    for (const char* type : {"n", "i", "x"}) {
        add(type, "-1", -1);
        add(type, "-600", -600);
    }
    add("y", "255", 255);
    add("n", "32767", 32767);
    add("n", "-32768", -32768);
    add("q", "65535", 65535);
    add("i", "2147483647", intMax);
    add("i", "-2147483648", intMin);
    // What does not fit is taken modulo 2^32, as QVariant converts it.
    add("u", "2147483648", intMin);
    add("u", "4294967295", -1);
    add("x", "4294967297", 1);
    add("x", "9223372036854775807", -1);
    add("x", "-9223372036854775808", 0);
    add("t", "4294967396", 100);
    add("t", "18446744073709551615", -1);
    add("s", "100", 100);
    add("d", "99.6", 100);
    add("b", "true", 1);
}

void tst_gatt_bad_input::offsetsOfEveryTypeAreTakenAsNumbers()
{
    QFETCH(QString, type);
    QFETCH(QString, text);
    QFETCH(int, offset);
    const BusMessage characteristic =
        read(m_tree->plain->dbusPath(), characteristicInterface(), {type, text});
    QCOMPARE(characteristic.type, "method_return"_qs);
    QCOMPARE(characteristic.bytes(), PageModel::readCharacteristic(numberedBytes(700), offset, {}));
    const BusMessage descriptor = read(m_tree->descriptor->dbusPath(), descriptorInterface(), {type, text});
    QCOMPARE(descriptor.bytes(), PageModel::readDescriptor(numberedBytes(700), offset));
    const BusMessage written =
        m_client.call(m_tree->plain->dbusPath(), characteristicInterface(), "WriteValue"_qs, "aya{sv}"_qs,
                      {"6e6577"_qs, "1"_qs, "offset"_qs, type, text});
    QCOMPARE(written.type, "method_return"_qs);
    QCOMPARE(m_tree->plain->value(), PageModel::writeCharacteristic(numberedBytes(700), offset, 0, "new"));
}

void tst_gatt_bad_input::offsetsThatAreNoNumbersStartAtZero_data()
{
    QTest::addColumn<QStringList>("offset");
    QTest::newRow("letters") << QStringList{"s"_qs, "abc"_qs};
    QTest::newRow("empty string") << QStringList{"s"_qs, QString()};
    QTest::newRow("object path") << QStringList{"o"_qs, "/a"_qs};
    QTest::newRow("signature") << QStringList{"g"_qs, "ai"_qs};
    QTest::newRow("bytes") << QStringList{"ay"_qs, "ff00"_qs};
    QTest::newRow("array of numbers") << QStringList{"ai"_qs, "1"_qs, "100"_qs};
    QTest::newRow("array of strings") << QStringList{"as"_qs, "2"_qs, "100"_qs, "200"_qs};
    QTest::newRow("dictionary") << QStringList{"a{sv}"_qs, "1"_qs, "offset"_qs, "q"_qs, "100"_qs};
    QTest::newRow("structure") << QStringList{"(qq)"_qs, "100"_qs, "200"_qs};
    QTest::newRow("variant") << QStringList{"v"_qs, "q"_qs, "100"_qs};
}

void tst_gatt_bad_input::offsetsThatAreNoNumbersStartAtZero()
{
    QFETCH(QStringList, offset);
    QCOMPARE(read(m_tree->plain->dbusPath(), characteristicInterface(), offset).bytes(), numberedBytes(700));
    QCOMPARE(read(m_tree->descriptor->dbusPath(), descriptorInterface(), offset).bytes(), numberedBytes(512));
}

void tst_gatt_bad_input::offsetsBeyondEveryIntegerAreAnswered()
{
    for (const QString& text : {"1e300"_qs, "-1e300"_qs, "nan"_qs, "inf"_qs}) {
        QVERIFY(read(m_tree->plain->dbusPath(), characteristicInterface(), {"d"_qs, text}).isReply());
        QVERIFY(read(m_tree->descriptor->dbusPath(), descriptorInterface(), {"d"_qs, text}).isReply());
    }
}

void tst_gatt_bad_input::callsThatDoNotFitAreErrors_data()
{
    QTest::addColumn<QString>("interface");
    QTest::addColumn<QString>("member");
    QTest::addColumn<QString>("signature");
    QTest::addColumn<QStringList>("arguments");
    const QString own = characteristicInterface();
    QTest::newRow("unknown method") << own << "Unknown"_qs << QString() << QStringList();
    QTest::newRow("letter case") << own << "readValue"_qs
                                 << "a{sv}"_qs << QStringList{"0"_qs};
    QTest::newRow("unknown interface") << "org.example.Other"_qs
                                       << "ReadValue"_qs
                                       << "a{sv}"_qs << QStringList{"0"_qs};
    QTest::newRow("slot that is not of the interface") << own << "GetAll"_qs
                                                       << "s"_qs << QStringList{own};
    QTest::newRow("private slot") << own << "on_control_valueChanged"_qs << QString() << QStringList();
    QTest::newRow("deleteLater") << own << "deleteLater"_qs << QString() << QStringList();
    QTest::newRow("read without options") << own << "ReadValue"_qs << QString() << QStringList();
    QTest::newRow("read with a string") << own << "ReadValue"_qs
                                        << "s"_qs << QStringList{"x"_qs};
    QTest::newRow("read with a{ss}") << own << "ReadValue"_qs
                                     << "a{ss}"_qs << QStringList{"0"_qs};
    QTest::newRow("write without options") << own << "WriteValue"_qs
                                           << "ay"_qs << QStringList{"61"_qs};
    QTest::newRow("write of a string") << own << "WriteValue"_qs
                                       << "sa{sv}"_qs << QStringList{"x"_qs, "0"_qs};
    QTest::newRow("write of numbers") << own << "WriteValue"_qs
                                      << "aia{sv}"_qs << QStringList{"0"_qs, "0"_qs};
    QTest::newRow("arguments swapped") << own << "WriteValue"_qs
                                       << "a{sv}ay"_qs << QStringList{"0"_qs, "61"_qs};
    QTest::newRow("get without a name") << propertiesInterface() << "Get"_qs
                                        << "s"_qs << QStringList{own};
    QTest::newRow("get of numbers") << propertiesInterface() << "Get"_qs
                                    << "ii"_qs << QStringList{"1"_qs, "2"_qs};
    QTest::newRow("set without a variant") << propertiesInterface() << "Set"_qs
                                           << "sss"_qs << QStringList{own, "UUID"_qs, "x"_qs};
}

void tst_gatt_bad_input::callsThatDoNotFitAreErrors()
{
    QFETCH(QString, interface);
    QFETCH(QString, member);
    QFETCH(QString, signature);
    QFETCH(QStringList, arguments);
    const QString path = m_tree->plain->dbusPath();
    const BusMessage reply = m_client.call(path, interface, member, signature, arguments);
    QCOMPARE(reply.type, "error"_qs);
    QVERIFY2(reply.errorName != "org.freedesktop.DBus.Error.NoReply"_qs, qPrintable(reply.errorText));
    QCOMPARE(m_tree->plain->value(), numberedBytes(700));
    // It goes on serving.
    QCOMPARE(read(path, characteristicInterface(), {"q"_qs, "0"_qs}).bytes(), numberedBytes(700));
}

void tst_gatt_bad_input::controlTextOfEveryShapeIsAnswered_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("readPage"); // -1: not paged
    QTest::addColumn<int>("writePage");
    const auto add = [](const char* name, const QByteArray& text, int readPage, int writePage) {
        QTest::newRow(name) << text << readPage << writePage;
    };
    add("empty", "", -1, 0);
    for (const char* text : {"0", "00", "-0", "+0"}) {
        add(text, text, 0, 0);
    }
    add("+1", "+1", 1, 1);
    add("2", "2", 2, 2);
    add("-1", "-1", -1, -1);
    add("largest", "2147483647", intMax, intMax);
    add("too large", "2147483648", -1, 0);
    add("smallest", "-2147483648", -1, -1);
    add("too small", "-2147483649", -1, 0);
    add("letters", "abc", -1, 0);
    add("zero byte first", QByteArray("\0001", 2), -1, 0);
    add("all zero bytes", QByteArray(100, '\0'), -1, 0);
    add("not UTF-8", "\xff\xfe\x80", -1, 0);
    add("10 kB of digits", QByteArray(10240, '9'), -1, 0);
    add("10 kB of letters", QByteArray(10240, 'z'), -1, 0);
}

void tst_gatt_bad_input::controlTextOfEveryShapeIsAnswered()
{
    QFETCH(QByteArray, text);
    QFETCH(int, readPage);
    QFETCH(int, writePage);
    m_tree->paged->setValue(numberedBytes(1300));
    const BusMessage selected =
        m_client.call(m_tree->control->dbusPath(), characteristicInterface(), "WriteValue"_qs, "aya{sv}"_qs,
                      {QString::fromLatin1(text.toHex()), "0"_qs});
    QCOMPARE(selected.type, "method_return"_qs);
    const QString path = m_tree->paged->dbusPath();
    for (const int offset : {0, 10, 600, intMax, intMin}) {
        QCOMPARE(read(path, characteristicInterface(), {"i"_qs, QString::number(offset)}).bytes(),
                 PageModel::readCharacteristic(numberedBytes(1300), offset, readPage));
    }
    const BusMessage written = m_client.call(path, characteristicInterface(), "WriteValue"_qs, "aya{sv}"_qs,
                                             {"6e6577"_qs, "1"_qs, "offset"_qs, "q"_qs, "3"_qs});
    QCOMPARE(written.type, "method_return"_qs);
    QCOMPARE(m_tree->paged->value(),
             PageModel::writeCharacteristic(numberedBytes(1300), 3, writePage, "new"));
}

void tst_gatt_bad_input::aMillionBytesAreWrittenAndReadBack()
{
    const QByteArray million = numberedBytes(1000000);
    for (const GattCharacteristic* target : {m_tree->plain, m_tree->paged, m_tree->control}) {
        const QString path = target->dbusPath();
        QCOMPARE(m_client
                     .call(path, characteristicInterface(), "WriteValue"_qs, "aya{sv}"_qs,
                           {QString::fromLatin1(million.toHex()), "0"_qs})
                     .type,
                 "method_return"_qs);
        QCOMPARE(target->value(), million);
        QCOMPARE(read(path, characteristicInterface(), {"q"_qs, "0"_qs}).bytes(), million);
    }
}

void tst_gatt_bad_input::manyCallsAtOnceAreAllAnsweredInOrder()
{
    QVector<int> calls;
    for (int i = 0; i < 300; ++i) {
        calls << m_client.start({m_tree->plain->dbusPath(),
                                 characteristicInterface(),
                                 "ReadValue"_qs,
                                 "a{sv}"_qs,
                                 {"1"_qs, "offset"_qs, "q"_qs, QString::number(i)}});
    }
    for (int i = 0; i < calls.size(); ++i) {
        QCOMPARE(m_client.answer(calls.at(i)).bytes(), numberedBytes(700).mid(i));
    }
}

QTEST_GUILESS_MAIN(tst_gatt_bad_input)
#include "tst_gatt_bad_input.moc"
