#include "Attributes.h"
#include "LogCapture.h"

#include <QSignalSpy>
#include <QtTest>

using plim::Access;
using plim::AttError;
using plim::ReadRequest;
using plim::WriteRequest;

class tst_requests : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void aReadHandlerKnowsWhoAsksAndAnswers_data() { addAttributes(); }
    void aReadHandlerKnowsWhoAsksAndAnswers();
    void aWriteHandlerKnowsWhatIsWrittenAndStoresIt_data() { addAttributes(); }
    void aWriteHandlerKnowsWhatIsWrittenAndStoresIt();
    void optionsThatAreMissingAreEmpty();
    void anOffsetGetsTheRestOfTheValue_data();
    void anOffsetGetsTheRestOfTheValue();
    void noMoreThanAnAttributeHoldsIsSent();
    void answeringAReadLeavesTheValueAsItIs();
    void everyErrorReachesTheCaller_data();
    void everyErrorReachesTheCaller();
    void aRefusedWriteChangesNothing_data() { addAttributes(); }
    void aRefusedWriteChangesNothing();
    void anAcceptedWriteIsNotNotifiedUnlessAskedFor();
    void aValueSetWhileAWriteIsAcceptedIsNotified();
    void writesAreStoredAtTheirOffset();
    void writesGoToTheSelectedPage();
    void whatNoAttributeHoldsDoesNotReachTheWriteHandler_data();
    void whatNoAttributeHoldsDoesNotReachTheWriteHandler();
    void aRemovedHandlerLeavesTheAnswerToTheBaseClass();
    void whatTheAccessDoesNotAllowIsRefused_data();
    void whatTheAccessDoesNotAllowIsRefused();
    void whatIsRefusedWithoutAnAnswerIsDropped();
    void theProgramsOwnCallsAreNotRequests();

private:
    const QString m_path = "/app/aaaa/c0"_qs;
    Caller m_caller;
    std::unique_ptr<Attributes> m_tree;
};

void tst_requests::initTestCase()
{
    m_caller.match("type='signal',interface='org.freedesktop.DBus.Properties'"_qs);
}

void tst_requests::init()
{
    m_tree = std::make_unique<Attributes>();
}

void tst_requests::cleanup()
{
    m_tree.reset();
    m_caller.takeSignals();
}

void tst_requests::aReadHandlerKnowsWhoAsksAndAnswers()
{
    QFETCH(QString, path);
    ReadRequest seen;
    const auto handler = [&](const ReadRequest& request) {
        seen = request;
        QVERIFY(!request.isAnswered());
        request.accept("abc");
        QVERIFY(request.isAnswered());
    };
    m_tree->characteristic->setReadHandler(handler);
    m_tree->descriptor->setReadHandler(handler);
    const BusMessage reply = m_caller.read(path);
    QCOMPARE(reply.signature, "ay"_qs);
    QCOMPARE(reply.bytes(), QByteArray("abc"));
    QCOMPARE(seen.central().path(), phonePath);
    QCOMPARE(seen.link(), "LE"_qs);
    QCOMPARE(seen.mtu(), 517);
    QCOMPARE(seen.offset(), 0);
    QVERIFY(seen.isAnswered());
}

void tst_requests::aWriteHandlerKnowsWhatIsWrittenAndStoresIt()
{
    QFETCH(QString, path);
    WriteRequest seen;
    const auto handler = [&](const WriteRequest& request) {
        seen = request;
        request.accept();
    };
    m_tree->characteristic->setWriteHandler(handler);
    m_tree->descriptor->setWriteHandler(handler);
    QSignalSpy ofCharacteristic(m_tree->characteristic, &GattCharacteristic::valueChanged);
    QSignalSpy ofDescriptor(m_tree->descriptor, &GattDescriptor::valueChanged);
    const BusMessage reply = m_caller.write(path, "abc");
    QCOMPARE(reply.type, "method_return"_qs);
    QCOMPARE(reply.signature, QString());
    QCOMPARE(seen.value(), QByteArray("abc"));
    QCOMPARE(seen.central().path(), phonePath);
    QCOMPARE(seen.link(), "LE"_qs);
    QCOMPARE(seen.mtu(), 517);
    QCOMPARE(seen.offset(), 0);
    QCOMPARE(ofCharacteristic.size() + ofDescriptor.size(), 1);
    const bool isDescriptor = ofDescriptor.size() == 1;
    QCOMPARE(isDescriptor ? m_tree->descriptor->value() : m_tree->characteristic->value(), QByteArray("abc"));
}

void tst_requests::optionsThatAreMissingAreEmpty()
{
    ReadRequest seen;
    m_tree->characteristic->setReadHandler([&](const ReadRequest& request) {
        seen = request;
        request.accept({});
    });
    QCOMPARE(m_caller.read(m_path, {"0"_qs}).bytes(), QByteArray());
    QVERIFY(seen.central().isNull());
    QCOMPARE(seen.mtu(), 0);
    QCOMPARE(seen.link(), QString());
}

void tst_requests::anOffsetGetsTheRestOfTheValue_data()
{
    QTest::addColumn<int>("offset");
    QTest::addColumn<QString>("expected");
    QTest::newRow("start") << 0 << "method_return 0123456789"_qs;
    QTest::newRow("middle") << 4 << "method_return 456789"_qs;
    QTest::newRow("end") << 10 << "method_return "_qs;
    QTest::newRow("beyond") << 11 << "InvalidOffset  "_qs;
    QTest::newRow("far beyond") << 65535 << "InvalidOffset  "_qs;
}

void tst_requests::anOffsetGetsTheRestOfTheValue()
{
    QFETCH(int, offset);
    m_tree->characteristic->setReadHandler([&](const ReadRequest& request) {
        QCOMPARE(request.offset(), offset);
        request.accept("0123456789");
    });
    const BusMessage reply = m_caller.read(m_path, Caller::options(offset));
    QTEST(outcome(reply) + QLatin1Char(' ') + QString::fromLatin1(reply.bytes()), "expected");
}

void tst_requests::noMoreThanAnAttributeHoldsIsSent()
{
    m_tree->characteristic->setReadHandler(
        [](const ReadRequest& request) { request.accept(QByteArray(513, 'x')); });
    const LogCapture log;
    QCOMPARE(m_caller.read(m_path).bytes(), QByteArray(512, 'x'));
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL),
             QStringList{"Value of /app/aaaa/c0 is longer than an attribute can be: 513 bytes"_qs});
}

void tst_requests::answeringAReadLeavesTheValueAsItIs()
{
    m_tree->characteristic->setValue("pushed");
    m_tree->characteristic->setReadHandler([](const ReadRequest& request) { request.accept("answered"); });
    QCOMPARE(m_caller.read(m_path).bytes(), QByteArray("answered"));
    QCOMPARE(m_tree->characteristic->value(), QByteArray("pushed"));
    QCOMPARE(m_tree->characteristic->cachedValue(), QByteArray());
}

void tst_requests::everyErrorReachesTheCaller_data()
{
    QTest::addColumn<AttError>("error");
    for (const int code : {0x02, 0x03, 0x06, 0x07, 0x08, 0x0d, 0x0e, 0xfd, 0xfe}) {
        QTest::newRow(qPrintable(QString::number(code, 16))) << AttError(AttError::Code(code));
    }
    QTest::newRow("80") << AttError::application(0x80);
    QTest::newRow("9f") << AttError::application(0x9f);
}

void tst_requests::everyErrorReachesTheCaller()
{
    QFETCH(AttError, error);
    m_tree->characteristic->setReadHandler([&](const ReadRequest& request) { request.reject(error); });
    m_tree->characteristic->setWriteHandler([&](const WriteRequest& request) { request.reject(error); });
    for (const BusMessage& reply : {m_caller.read(m_path), m_caller.write(m_path, "x")}) {
        QCOMPARE(reply.errorName, error.dbusName());
        QCOMPARE(reply.errorText, error.dbusText());
    }
}

void tst_requests::aRefusedWriteChangesNothing()
{
    QFETCH(QString, path);
    QCOMPARE(m_caller.write(path, "old").type, "method_return"_qs);
    const auto handler = [&](const WriteRequest& request) {
        request.reject(AttError::InsufficientAuthorization);
    };
    m_tree->characteristic->setWriteHandler(handler);
    m_tree->descriptor->setWriteHandler(handler);
    QSignalSpy ofCharacteristic(m_tree->characteristic, &GattCharacteristic::valueChanged);
    QSignalSpy ofDescriptor(m_tree->descriptor, &GattDescriptor::valueChanged);
    QCOMPARE(outcome(m_caller.write(path, "new")), "NotAuthorized "_qs);
    QCOMPARE(m_tree->characteristic->value() + m_tree->descriptor->value(), QByteArray("old"));
    QVERIFY(ofCharacteristic.isEmpty() && ofDescriptor.isEmpty());
}

void tst_requests::anAcceptedWriteIsNotNotifiedUnlessAskedFor()
{
    auto notification = WriteRequest::DoNotNotify;
    m_tree->characteristic->setWriteHandler(
        [&](const WriteRequest& request) { request.accept(notification); });
    m_caller.plainCall(m_path, "StartNotify");
    m_caller.write(m_path, "quiet");
    QCOMPARE(m_caller.takeSignals().size(), 0);
    notification = WriteRequest::Notify;
    m_caller.write(m_path, "loud");
    const QVector<BusMessage> notified = m_caller.takeSignals();
    QCOMPARE(notified.size(), 1);
    QCOMPARE(notified.first().text, R"("org.bluez.GattCharacteristic1", {"Value": <ay [6c6f7564]>}, [])"_qs);
}

void tst_requests::aValueSetWhileAWriteIsAcceptedIsNotified()
{
    m_tree->characteristic->setWriteHandler([](const WriteRequest& request) { request.accept(); });
    QObject::connect(m_tree->characteristic, &GattCharacteristic::valueChanged, m_tree->characteristic,
                     [this] { m_tree->characteristic->setValue("\x01"); });
    m_caller.plainCall(m_path, "StartNotify");
    m_caller.write(m_path, "x");
    const QVector<BusMessage> notified = m_caller.takeSignals();
    QCOMPARE(notified.size(), 1);
    QVERIFY(notified.first().text.contains("[01]"_qs));
}

void tst_requests::writesAreStoredAtTheirOffset()
{
    m_tree->characteristic->setValue("0123456789");
    m_tree->characteristic->setWriteHandler([](const WriteRequest& request) { request.accept(); });
    m_caller.write(m_path, "xy", Caller::options(4));
    QCOMPARE(m_tree->characteristic->value(), QByteArray("0123xy"));
}

void tst_requests::writesGoToTheSelectedPage()
{
    auto* control = plim::Characteristic::create(m_tree->service, "c1"_qs, Access().write());
    auto* paged =
        plim::Characteristic::create(m_tree->service, "c2"_qs, Access().write(), QString(), control);
    int asked = 0;
    paged->setWriteHandler([&](const WriteRequest& request) {
        ++asked;
        request.accept();
    });
    QSignalSpy changed(paged, &GattCharacteristic::valueChanged);
    paged->setValue(QByteArray(1000, '.'));
    control->WriteValue("1", {});
    m_caller.write(paged->dbusPath(), "end");
    QCOMPARE(paged->value(), QByteArray(512, '.') + "end");
    QCOMPARE(changed.size(), 1);
    control->WriteValue("-1", {});
    const LogCapture log;
    QCOMPARE(m_caller.write(paged->dbusPath(), "lost").type, "method_return"_qs);
    QCOMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL), QStringList{"Invalid page offset: -1"_qs});
    QCOMPARE(paged->value(), QByteArray(512, '.') + "end");
    QCOMPARE(changed.size(), 1);
    QCOMPARE(asked, 1);
}

void tst_requests::whatNoAttributeHoldsDoesNotReachTheWriteHandler_data()
{
    QTest::addColumn<int>("offset");
    QTest::addColumn<int>("size");
    QTest::addColumn<QString>("expected");
    QTest::newRow("all of it") << 0 << 512 << "method_return"_qs;
    QTest::newRow("its end") << 512 << 0 << "method_return"_qs;
    QTest::newRow("a byte too many") << 0 << 513 << "InvalidValueLength "_qs;
    QTest::newRow("over the end") << 500 << 13 << "InvalidValueLength "_qs;
    QTest::newRow("behind the end") << 513 << 0 << "InvalidOffset "_qs;
}

void tst_requests::whatNoAttributeHoldsDoesNotReachTheWriteHandler()
{
    QFETCH(int, offset);
    QFETCH(int, size);
    QFETCH(QString, expected);
    int asked = 0;
    m_tree->characteristic->setWriteHandler([&](const WriteRequest& request) {
        ++asked;
        request.accept();
    });
    QCOMPARE(outcome(m_caller.write(m_path, QByteArray(size, 'x'), Caller::options(offset))), expected);
    QCOMPARE(asked, expected == "method_return"_qs ? 1 : 0);
}

void tst_requests::aRemovedHandlerLeavesTheAnswerToTheBaseClass()
{
    m_tree->characteristic->setValue("own");
    m_tree->characteristic->setReadHandler([](const ReadRequest& request) { request.accept("handler"); });
    QCOMPARE(m_caller.read(m_path).bytes(), QByteArray("handler"));
    m_tree->characteristic->setReadHandler({});
    QCOMPARE(m_caller.read(m_path).bytes(), QByteArray("own"));
    m_tree->characteristic->setReadCallback([] { return QByteArray("callback"); });
    QCOMPARE(m_caller.read(m_path).bytes(), QByteArray("callback"));
}

void tst_requests::whatTheAccessDoesNotAllowIsRefused_data()
{
    QTest::addColumn<Access>("access");
    QTest::addColumn<QString>("read");
    QTest::addColumn<QString>("write");
    QTest::addColumn<QString>("subscribe");
    const auto yes = "method_return"_qs;
    const auto no = "NotPermitted "_qs;
    const auto unsupported = "NotSupported "_qs;
    QTest::newRow("read") << Access().read() << yes << no << unsupported;
    QTest::newRow("protected read") << Access().read(Access::Encrypted) << yes << no << unsupported;
    QTest::newRow("write") << Access().write() << no << yes << unsupported;
    QTest::newRow("command") << Access().writeWithoutResponse() << no << yes << unsupported;
    QTest::newRow("notify") << Access().notify() << no << no << yes;
    QTest::newRow("indicate") << Access().indicate() << no << no << yes;
}

void tst_requests::whatTheAccessDoesNotAllowIsRefused()
{
    QFETCH(Access, access);
    QFETCH(QString, read);
    QFETCH(QString, write);
    for (const bool handled : {false, true}) {
        m_tree.reset();
        m_tree = std::make_unique<Attributes>(access);
        int asked = 0;
        if (handled) {
            m_tree->characteristic->setReadHandler([&](const ReadRequest& request) {
                ++asked;
                request.accept({});
            });
            m_tree->characteristic->setWriteHandler([&](const WriteRequest& request) {
                ++asked;
                request.accept();
            });
        }
        QCOMPARE(outcome(m_caller.read(m_path)), read);
        QCOMPARE(outcome(m_caller.write(m_path, "x")), write);
        QTEST(outcome(m_caller.plainCall(m_path, "StartNotify")), "subscribe");
        QCOMPARE(m_tree->characteristic->notifying(), access.allowsSubscribing());
        QCOMPARE(m_tree->characteristic->value(), QByteArray(access.allowsWrite() ? "x" : ""));
        QCOMPARE(asked, handled ? int(access.allowsRead()) + int(access.allowsWrite()) : 0);
    }
}

void tst_requests::whatIsRefusedWithoutAnAnswerIsDropped()
{
    m_tree.reset();
    m_tree = std::make_unique<Attributes>(Access().read());
    m_caller.writeWithoutReply(m_path, "x");
    QCOMPARE(m_tree->characteristic->value(), QByteArray());
    m_tree.reset();
    m_tree = std::make_unique<Attributes>(Access().writeWithoutResponse());
    m_caller.writeWithoutReply(m_path, "x");
    QCOMPARE(m_tree->characteristic->value(), QByteArray("x"));
    m_tree->characteristic->setWriteHandler(
        [](const WriteRequest& request) { request.reject(AttError::InsufficientAuthorization); });
    m_caller.writeWithoutReply(m_path, "y");
    QCOMPARE(m_tree->characteristic->value(), QByteArray("x"));
}

void tst_requests::theProgramsOwnCallsAreNotRequests()
{
    m_tree->characteristic->setReadHandler([](const ReadRequest& request) { request.accept("handler"); });
    m_tree->characteristic->setWriteHandler(
        [](const WriteRequest& request) { request.reject(AttError::UnlikelyError); });
    m_tree->characteristic->WriteValue("own", {});
    QCOMPARE(m_tree->characteristic->ReadValue({}), QByteArray("own"));
}

QTEST_GUILESS_MAIN(tst_requests)
#include "tst_requests.moc"
