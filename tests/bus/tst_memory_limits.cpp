#include "DBusDetail.h"
#include "GattTree.h"
#include "LogCapture.h"
#include "RawBusClient.h"

#include <QDir>
#include <QSignalSpy>
#include <QtTest>

namespace {

constexpr int limit = DBusDetail::maximumLength;
constexpr int propertySize = 4096;
constexpr int propertyNames = 64;

/** Lines at ERROR, of which nothing else here writes any. */
QStringList errors(const LogCapture& log)
{
    return log.texts(log4cplus::ERROR_LOG_LEVEL);
}

/** The file descriptors of this process. */
int openFiles()
{
    return int(
        QDir("/proc/self/fd"_qs).entryList(QDir::System | QDir::AllEntries | QDir::NoDotAndDotDot).size());
}

} // namespace

/** What others may make a peripheral hold, or send, has an end. */
class tst_memory_limits : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_tree = std::make_unique<GattTree>(); }
    void cleanup() { m_tree.reset(); }
    void writesGrowACharacteristicUpToTheLimit();
    void writesGrowADescriptorUpToTheLimit();
    void pagesDoNotReachBehindTheLimit();
    void aLongerLocalValueIsReadUpToTheLimit();
    void aLongerLocalValueIsNotNotified();
    void whatDoesNotFitIntoOneAnswerIsLeftOut();
    void inventedPropertiesAreCounted();
    void inventedPropertiesAreMeasured_data();
    void inventedPropertiesAreMeasured();
    void longValuesOfWhatCannotBeSetAreIgnoredInSilence_data();
    void longValuesOfWhatCannotBeSetAreIgnoredInSilence();
    void fileDescriptorsAreNotUsedUp();

private:
    BusMessage set(const QString& name, const QStringList& variant)
    {
        return m_client.call(m_path, propertiesInterface(), "Set"_qs, "ssv"_qs,
                             QStringList{characteristicInterface(), name} + variant);
    }

    const QString m_path = "/app/aaaa_bbbb/e0"_qs;
    RawBusClient m_client;
    std::unique_ptr<GattTree> m_tree;
};

void tst_memory_limits::writesGrowACharacteristicUpToTheLimit()
{
    const LogCapture log(log4cplus::ERROR_LOG_LEVEL);
    m_tree->plain->setValue(QByteArray(limit - 2, 'a'));
    const QSignalSpy written(m_tree->plain, &GattCharacteristic::valueChanged);
    m_tree->plain->WriteValue("bcd", at(limit - 2));
    QCOMPARE(m_tree->plain->value().size(), limit - 2);
    QCOMPARE(written.count(), 0);
    QCOMPARE(errors(log), QStringList{"Value of e0 would become too long to be sent"_qs});
    m_tree->plain->WriteValue("bc", at(limit - 2));
    QCOMPARE(m_tree->plain->value().size(), limit);
    QVERIFY(m_tree->plain->value().endsWith("abc"));
    QCOMPARE(written.count(), 1);
    m_tree->plain->WriteValue("new", {});
    QCOMPARE(m_tree->plain->value(), QByteArray("new"));
    QCOMPARE(errors(log).size(), 1);
}

void tst_memory_limits::writesGrowADescriptorUpToTheLimit()
{
    const LogCapture log(log4cplus::ERROR_LOG_LEVEL);
    m_tree->descriptor->WriteValue(QByteArray(limit, 'a'), {});
    m_tree->descriptor->WriteValue("b", at(limit));
    QCOMPARE(errors(log), QStringList{"Value of 2901 would become too long to be sent"_qs});
    QCOMPARE(m_tree->descriptor->value().size(), limit);
    m_tree->descriptor->WriteValue("b", at(limit - 1));
    QVERIFY(m_tree->descriptor->value().endsWith("ab"));
    QCOMPARE(errors(log).size(), 1);
}

void tst_memory_limits::pagesDoNotReachBehindTheLimit()
{
    const LogCapture log(log4cplus::ERROR_LOG_LEVEL);
    m_tree->paged->setValue(QByteArray(limit, 'a'));
    QCOMPARE(m_tree->paged->value().size(), limit);
    m_tree->control->WriteValue(QByteArray::number(limit / 512), {});
    m_tree->paged->WriteValue("b", {});
    QCOMPARE(m_tree->paged->value().size(), limit);
    QCOMPARE(errors(log).size(), 1);
    QCOMPARE(m_tree->paged->ReadValue({}), QByteArray());
    m_tree->control->WriteValue(QByteArray::number(limit / 512 - 1), {});
    QCOMPARE(m_tree->paged->ReadValue({}), QByteArray(512, 'a'));
}

void tst_memory_limits::aLongerLocalValueIsReadUpToTheLimit()
{
    const QByteArray value = numberedBytes(1000) + QByteArray(limit, 'a') + numberedBytes(1000);
    m_tree->plain->setValue(value);
    QCOMPARE(m_tree->plain->value(), value);
    QCOMPARE(m_tree->plain->ReadValue({}), value.left(limit));
    QCOMPARE(m_tree->plain->ReadValue(at(500)), value.mid(500, limit));
    QCOMPARE(m_tree->plain->ReadValue(at(limit)), value.mid(limit));
    const BusMessage read = m_client.call(m_path, characteristicInterface(), "ReadValue"_qs, "a{sv}"_qs,
                                          {"1"_qs, "offset"_qs, "u"_qs, QString::number(limit)});
    QCOMPARE(read.bytes(), value.mid(limit));
}

void tst_memory_limits::aLongerLocalValueIsNotNotified()
{
    const LogCapture log(log4cplus::ERROR_LOG_LEVEL);
    const QSignalSpy local(m_tree->plain, &GattCharacteristic::PropertiesChanged);
    m_client.match("type='signal',member='PropertiesChanged'"_qs);
    m_tree->plain->StartNotify();
    m_tree->plain->setValue(QByteArray(limit + 1, 'a'));
    QCOMPARE(local.count(), 1);
    QCOMPARE(errors(log), QStringList{"Value too long to be notified at /app/aaaa_bbbb/e0"_qs});
    m_tree->plain->setValue("short");
    QCOMPARE(local.count(), 2);
    QCOMPARE(errors(log).size(), 1);
    m_client.ping();
    const QVector<BusMessage> notified = m_client.takeSignals();
    QCOMPARE(notified.size(), 1);
    QVERIFY2(notified[0].text.contains("[73686f7274]"_qs), qPrintable(notified[0].text));
}

void tst_memory_limits::whatDoesNotFitIntoOneAnswerIsLeftOut()
{
    for (GattCharacteristic* each : {m_tree->control, m_tree->plain}) {
        each->setValue(QByteArray(limit / 2 + 1, 'a'));
        each->ReadValue({}); // what was read last is what is shown
    }
    // Two values that are too long together: the first in the order of the paths is shown, the other is not.
    const BusMessage objects =
        m_client.call("/app"_qs, "org.freedesktop.DBus.ObjectManager"_qs, "GetManagedObjects"_qs);
    QVERIFY2(objects.isReply(), qPrintable(objects.errorText));
    const QString value = "[%1]"_qs.arg(QString::fromLatin1(QByteArray(limit / 2 + 1, 'a').toHex()));
    QCOMPARE(objects.text.count(value), 1);
    QVERIFY(objects.text.indexOf(value) < objects.text.indexOf("/app/aaaa_bbbb/d0_1"_qs));
    QVERIFY(objects.text.contains("\"UUID\": <s \"e0\">"_qs));
}

void tst_memory_limits::inventedPropertiesAreCounted()
{
    for (int i = 0; i < propertyNames; ++i) {
        QVERIFY(set("Name%1"_qs.arg(i), {"i"_qs, "1"_qs}).isReply());
    }
    const LogCapture log(log4cplus::WARN_LOG_LEVEL);
    const BusMessage ignored = set("OneMore"_qs, {"i"_qs, "1"_qs});
    QCOMPARE(ignored.type, "method_return"_qs);
    QCOMPARE(ignored.text, QString());
    QCOMPARE(log.lines().size(), 1);
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL),
             QStringList{"Property OneMore of /app/aaaa_bbbb/e0 not set: it would take too much memory"_qs});
    // Those that are there can still be changed, and other objects have room of their own.
    QVERIFY(set("Name7"_qs, {"i"_qs, "2"_qs}).isReply());
    QCOMPARE(m_tree->plain->property("Name7"), QVariant(2));
    QVERIFY(!m_tree->plain->dynamicPropertyNames().contains("OneMore"));
    QCOMPARE(m_tree->plain->dynamicPropertyNames().size(), propertyNames);
    QCOMPARE(log.lines().size(), 1);
}

void tst_memory_limits::inventedPropertiesAreMeasured_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("value");
    QTest::addColumn<bool>("taken");
    const QString full(propertySize, QLatin1Char('a'));
    const QString more = full + QLatin1Char('a');
    const QString hex = full + full;
    QTest::newRow("long name") << full << QStringList{"i"_qs, "1"_qs} << true;
    QTest::newRow("longer name") << more << QStringList{"i"_qs, "1"_qs} << false;
    QTest::newRow("name of wide characters")
        << QString(propertySize / 2 + 1, QChar(0xe4)) << QStringList{"i"_qs, "1"_qs} << false;
    QTest::newRow("string") << "A"_qs << QStringList{"s"_qs, full} << true;
    QTest::newRow("longer string") << "A"_qs << QStringList{"s"_qs, more} << false;
    QTest::newRow("strings") << "A"_qs << QStringList{"as"_qs, "2"_qs, full, full} << false;
    QTest::newRow("bytes") << "A"_qs << QStringList{"ay"_qs, hex} << true;
    QTest::newRow("more bytes") << "A"_qs << QStringList{"ay"_qs, hex + "00"_qs} << false;
    const QString wide(propertySize / 2 + 1, QChar(0xe4));
    QTest::newRow("string of wide characters") << "A"_qs << QStringList{"s"_qs, wide} << false;
    const QString half = full.left(propertySize / 2);
    const QString third = full.left(propertySize / 3);
    QTest::newRow("dictionary") << "A"_qs << QStringList{"a{ss}"_qs, "1"_qs, third, third} << true;
    QTest::newRow("longer key") << "A"_qs << QStringList{"a{ss}"_qs, "1"_qs, full, "b"_qs} << false;
    QTest::newRow("longer entry") << "A"_qs << QStringList{"a{ss}"_qs, "1"_qs, half, half} << false;
    QTest::newRow("longer dictionary of variants")
        << "A"_qs << QStringList{"a{sv}"_qs, "1"_qs, "k"_qs, "s"_qs, wide} << false;
    QTest::newRow("structure") << "A"_qs << QStringList{"(ss)"_qs, third, third} << true;
    QTest::newRow("longer structure") << "A"_qs << QStringList{"(ss)"_qs, half, half} << false;
    QTest::newRow("longer structure deep inside")
        << "A"_qs << QStringList{"av"_qs, "1"_qs, "(v)"_qs, "a(s)"_qs, "1"_qs, more} << false;
    QTest::newRow("longer object path") << "A"_qs << QStringList{"o"_qs, QLatin1Char('/') + full} << false;
    const auto integers = [](int count) {
        QStringList texts{"ai"_qs, QString::number(count)};
        for (int i = 0; i < count; ++i) {
            texts << "1"_qs;
        }
        return texts;
    };
    QTest::newRow("integers") << "A"_qs << integers(propertySize / 8) << true;
    QTest::newRow("more integers") << "A"_qs << integers(propertySize / 8 + 1) << false;
    QStringList empty{"aai"_qs, QString::number(propertySize / 4 + 1)};
    for (int i = 0; i < propertySize / 4 + 1; ++i) {
        empty << "0"_qs;
    }
    QTest::newRow("too many empty arrays") << "A"_qs << empty << false;
    QTest::newRow("file descriptor") << "A"_qs << QStringList{"h"_qs, "0"_qs} << true;
    QTest::newRow("file descriptors") << "A"_qs << QStringList{"ah"_qs, "1"_qs, "0"_qs} << false;
    QTest::newRow("file descriptor deep inside")
        << "A"_qs << QStringList{"(v)"_qs, "v"_qs, "h"_qs, "0"_qs} << false;
}

void tst_memory_limits::inventedPropertiesAreMeasured()
{
    QFETCH(QString, name);
    QFETCH(QStringList, value);
    QFETCH(bool, taken);
    const LogCapture log(log4cplus::WARN_LOG_LEVEL);
    const BusMessage answer = set(name, value);
    QCOMPARE(answer.type, "method_return"_qs);
    QCOMPARE(answer.text, QString());
    QCOMPARE(m_tree->plain->dynamicPropertyNames().contains(name.toUtf8()), taken);
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL).size(), taken ? 0 : 1);
}

void tst_memory_limits::longValuesOfWhatCannotBeSetAreIgnoredInSilence_data()
{
    QTest::addColumn<QString>("interface");
    QTest::addColumn<QString>("name");
    QTest::newRow("another interface") << descriptorInterface() << "Note"_qs;
    QTest::newRow("no interface") << QString() << "Note"_qs;
    QTest::newRow("a declared property") << characteristicInterface() << "UUID"_qs;
    QTest::newRow("a declared property of another type") << characteristicInterface() << "Notifying"_qs;
}

void tst_memory_limits::longValuesOfWhatCannotBeSetAreIgnoredInSilence()
{
    QFETCH(QString, interface);
    QFETCH(QString, name);
    const LogCapture log(log4cplus::WARN_LOG_LEVEL);
    const BusMessage answer =
        m_client.call(m_path, propertiesInterface(), "Set"_qs, "ssv"_qs,
                      {interface, name, "s"_qs, QString(propertySize + 1, QLatin1Char('a'))});
    QCOMPARE(answer.type, "method_return"_qs);
    QCOMPARE(answer.text, QString());
    QVERIFY(m_tree->plain->dynamicPropertyNames().isEmpty());
    QCOMPARE(m_tree->plain->uUID(), "e0"_qs);
    QCOMPARE(log.lines().size(), 0);
}

void tst_memory_limits::fileDescriptorsAreNotUsedUp()
{
    const auto setAndGet = [this](const QString& name, const QStringList& value) {
        set(name, value);
        return m_client.get(m_path, characteristicInterface(), name);
    };
    const QStringList inside{"ah"_qs, "1"_qs, "0"_qs};
    const QStringList alone{"h"_qs, "0"_qs};
    setAndGet("Alone"_qs, alone);
    const int before = openFiles();
    for (int i = 0; i < 20; ++i) {
        QVERIFY(setAndGet("Inside"_qs, inside).isError());
        QCOMPARE(setAndGet("Alone"_qs, alone).text, R"(<h "open">)"_qs);
    }
    m_client.ping();
    // Qt's own thread closes the files of a message a moment after it was handled: before, too.
    QTRY_VERIFY_WITH_TIMEOUT(openFiles() <= before, 10000);
}

QTEST_GUILESS_MAIN(tst_memory_limits)
#include "tst_memory_limits.moc"
