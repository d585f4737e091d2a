#include "BleDBusTypes.h"
#include "Literals.h"
#include "LogCapture.h"
#include "plimlog.h"

#include <QtTest>

#include <sstream>

namespace {

log4cplus::Logger logger = log4cplus::Logger::getInstance("Ble");

template <typename T>
QByteArray written(const T& value)
{
    std::ostringstream stream;
    stream << value;
    return QByteArray::fromStdString(stream.str());
}

int evaluations = 0;

/** An argument that writes a line of its own while it is evaluated. */
QString loggingArgument()
{
    ++evaluations;
    PLIM_LOG(logger, DEBUG, "inner()", "inner");
    return "argument"_qs;
}

} // namespace

class tst_log_text : public QObject
{
    Q_OBJECT

private slots:
    void entryLinesNameTheOperationInItsClass_data();
    void entryLinesNameTheOperationInItsClass();
    void stringsAreWrittenAsUtf8();
    void byteArraysAreWrittenWithTheirZeroBytes();
    void objectPathsAreWrittenAsTheirCharacters();
    void variantsAreWrittenAsWhatTheyHold_data();
    void variantsAreWrittenAsWhatTheyHold();
    void aLineCarriesLevelTextFunctionAndFile();
    void aLineIsNotBuiltWhileItsLevelIsOff();
    void aLineWhoseArgumentLogsComesWholeAndAfterIt();
};

void tst_log_text::entryLinesNameTheOperationInItsClass_data()
{
    QTest::addColumn<QString>("signature");
    QTest::addColumn<QString>("text");
    QTest::newRow("method") << "void BleManager::registerApp(const GattApplication*)"_qs
                            << "BleManager::registerApp"_qs;
    QTest::newRow("const method") << "QString GattService::uUID() const"_qs
                                  << "GattService::uUID"_qs;
    QTest::newRow("constructor") << "GattService::GattService(QObject*, const QString&, bool)"_qs
                                 << "GattService::GattService"_qs;
    QTest::newRow("pointer result") << "GattService *GattApplication::createService(const QString &, bool)"_qs
                                    << "GattApplication::createService"_qs;
    QTest::newRow("no parentheses") << "nothing to cut"_qs
                                    << "nothing to cut"_qs;
    QTest::newRow("empty") << QString() << QString();
}

void tst_log_text::entryLinesNameTheOperationInItsClass()
{
    QFETCH(QString, signature);
    QFETCH(QString, text);
    QCOMPARE(QString::fromStdString(dbglog_scopedFunction(signature.toStdString(), "Ble")), text);
}

void tst_log_text::stringsAreWrittenAsUtf8()
{
    QCOMPARE(written("Gerät ☃"_qs), QByteArray("Gerät ☃"));
    QCOMPARE(written(QString()), QByteArray());
}

void tst_log_text::byteArraysAreWrittenWithTheirZeroBytes()
{
    QCOMPARE(written(QByteArray("a\0b", 3)), QByteArray("a\0b", 3));
}

void tst_log_text::objectPathsAreWrittenAsTheirCharacters()
{
    QCOMPARE(written(QDBusObjectPath("/org/bluez/hci0"_qs)), QByteArray("/org/bluez/hci0"));
    QCOMPARE(written(QDBusObjectPath()), QByteArray());
}

void tst_log_text::variantsAreWrittenAsWhatTheyHold_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("string") << QVariant("text"_qs) << QByteArray("text");
    QTest::newRow("number") << QVariant(-7) << QByteArray("-7");
    QTest::newRow("unsigned short") << QVariant::fromValue<ushort>(512) << QByteArray("512");
    QTest::newRow("byte") << QVariant::fromValue<uchar>(65) << QByteArray("65");
    QTest::newRow("boolean") << QVariant(true) << QByteArray("true");
    QTest::newRow("bytes") << QVariant(QByteArray("a\0b", 3)) << QByteArray("a\0b", 3);
    QTest::newRow("object path") << QVariant::fromValue(QDBusObjectPath("/dev"_qs)) << QByteArray("/dev");
    QTest::newRow("map") << QVariant(QVariantMap()) << QByteArray("<QVariantMap>");
    QTest::newRow("invalid") << QVariant() << QByteArray("<invalid>");
}

void tst_log_text::variantsAreWrittenAsWhatTheyHold()
{
    QFETCH(QVariant, value);
    QTEST(written(value), "text");
}

void tst_log_text::aLineCarriesLevelTextFunctionAndFile()
{
    LogCapture log;
    PLIM_LOG(logger, WARN, "void f(int)", "number " << 7);
    QCOMPARE(log.lines().size(), 1);
    QCOMPARE(log.lines().at(0).level, log4cplus::WARN_LOG_LEVEL);
    QCOMPARE(log.lines().at(0).text, "number 7"_qs);
    QCOMPARE(log.lines().at(0).function, "void f(int)"_qs);
    QVERIFY(log.lines().at(0).file.endsWith("tst_log_text.cpp"_qs));
}

void tst_log_text::aLineIsNotBuiltWhileItsLevelIsOff()
{
    evaluations = 0;
    {
        const LogCapture log(log4cplus::ERROR_LOG_LEVEL);
        PLIM_LOG(logger, WARN, "f()", loggingArgument());
        QCOMPARE(evaluations, 0);
        QCOMPARE(log.lines().size(), 0);
        PLIM_LOG(logger, ERROR, "f()", loggingArgument());
        QCOMPARE(evaluations, 1);
        QCOMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL), QStringList("argument"_qs));
    }
}

void tst_log_text::aLineWhoseArgumentLogsComesWholeAndAfterIt()
{
    const LogCapture log;
    PLIM_LOG_ENTER(logger, TRACE, "void outer()", "before " << loggingArgument() << " after");
    QCOMPARE(log.lines().size(), 2);
    QCOMPARE(log.lines().at(0).text, "inner"_qs);
    QCOMPARE(log.lines().at(1).text, "Enter outer: before argument after"_qs);
}

QTEST_GUILESS_MAIN(tst_log_text)
#include "tst_log_text.moc"
