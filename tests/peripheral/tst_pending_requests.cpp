#include "Attributes.h"
#include "LogCapture.h"

#include <QElapsedTimer>
#include <QtTest>

#include <algorithm>
#include <stdexcept>
#include <thread>

using plim::Access;
using plim::AttError;
using plim::ReadRequest;
using plim::WriteRequest;

class tst_pending_requests : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void anAnswerMayComeLater();
    void anAnswerMayComeFromAnotherThread();
    void fiftyReadsWaitAtOnce();
    void onlyTheFirstAnswerCounts();
    void theLastCopyWithoutAnAnswerRejects_data() { addAttributes(); }
    void theLastCopyWithoutAnAnswerRejects();
    void nothingWaitsLongerThanFiveSeconds();
    void aHandlerThatThrowsRejects();
    void handlersInsideEachOtherEnd();
    void noRequestIsAnsweredAlready();

private:
    const QString m_path = "/app/aaaa/c0"_qs;
    Caller m_caller;
    std::unique_ptr<Attributes> m_tree;
};

void tst_pending_requests::initTestCase()
{
    m_caller.match("type='signal',interface='org.freedesktop.DBus.Properties'"_qs);
}

void tst_pending_requests::init()
{
    m_tree = std::make_unique<Attributes>();
}

void tst_pending_requests::cleanup()
{
    m_tree.reset();
    m_caller.takeSignals();
}

void tst_pending_requests::anAnswerMayComeLater()
{
    QVector<ReadRequest> reads;
    QVector<WriteRequest> writes;
    m_tree->characteristic->setReadHandler([&](const ReadRequest& request) { reads << request; });
    m_tree->characteristic->setWriteHandler([&](const WriteRequest& request) { writes << request; });
    const int read = m_caller.startRead(m_path);
    const int write = m_caller.startWrite(m_path, "new");
    m_caller.ping();
    QCOMPARE(reads.size() + writes.size(), 2);
    QVERIFY(!m_caller.isAnswered(read) && !m_caller.isAnswered(write));
    QCOMPARE(m_tree->characteristic->value(), QByteArray());
    writes.first().accept();
    QCOMPARE(m_tree->characteristic->value(), QByteArray("new"));
    reads.first().accept("late");
    QCOMPARE(m_caller.answer(read).bytes(), QByteArray("late"));
    QCOMPARE(m_caller.answer(write).type, "method_return"_qs);
}

void tst_pending_requests::anAnswerMayComeFromAnotherThread()
{
    QThread* storedOn = nullptr;
    QObject::connect(
        m_tree->characteristic, &GattCharacteristic::valueChanged, m_tree->characteristic,
        [&] { storedOn = QThread::currentThread(); }, Qt::DirectConnection);
    std::thread reader;
    std::thread writer;
    m_tree->characteristic->setReadHandler([&](const ReadRequest& request) {
        reader = std::thread([request] { request.accept("from elsewhere"); });
    });
    m_tree->characteristic->setWriteHandler(
        [&](const WriteRequest& request) { writer = std::thread([request] { request.accept(); }); });
    QCOMPARE(m_caller.read(m_path).bytes(), QByteArray("from elsewhere"));
    QCOMPARE(outcome(m_caller.write(m_path, "new")), "method_return"_qs);
    QCOMPARE(m_tree->characteristic->value(), QByteArray("new"));
    QCOMPARE(storedOn, QThread::currentThread());
    reader.join();
    writer.join();
}

void tst_pending_requests::fiftyReadsWaitAtOnce()
{
    QVector<ReadRequest> waiting;
    m_tree->characteristic->setReadHandler([&](const ReadRequest& request) { waiting << request; });
    QVector<int> calls;
    for (int i = 0; i < 50; ++i) {
        calls << m_caller.startRead(m_path, Caller::options(i));
    }
    EVENTUALLY_COMPARE(waiting.size(), 50);
    while (!waiting.isEmpty()) {
        const ReadRequest last = waiting.takeLast();
        last.accept(QByteArray(last.offset(), '.') + QByteArray::number(last.offset()));
    }
    for (int i = 0; i < 50; ++i) {
        QCOMPARE(m_caller.answer(calls.at(i)).bytes(), QByteArray::number(i));
    }
}

void tst_pending_requests::onlyTheFirstAnswerCounts()
{
    m_tree->characteristic->setReadHandler([](const ReadRequest& request) {
        request.accept("first");
        request.accept("second");
        request.reject(AttError::UnlikelyError);
    });
    m_tree->characteristic->setWriteHandler([](const WriteRequest& request) {
        request.reject(AttError::InsufficientAuthorization);
        request.accept();
    });
    const LogCapture log;
    QCOMPARE(m_caller.read(m_path).bytes(), QByteArray("first"));
    QCOMPARE(outcome(m_caller.write(m_path, "x")), "NotAuthorized "_qs);
    QCOMPARE(m_tree->characteristic->value(), QByteArray());
    // An answer too many would be sent to the caller all the same, and nothing be heard of it here.
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL), QStringList());
}

void tst_pending_requests::theLastCopyWithoutAnAnswerRejects()
{
    QFETCH(QString, path);
    m_tree->characteristic->setReadHandler([](const ReadRequest&) {});
    m_tree->characteristic->setWriteHandler([](const WriteRequest&) {});
    m_tree->descriptor->setReadHandler([](const ReadRequest&) {});
    m_tree->descriptor->setWriteHandler([](const WriteRequest&) {});
    const LogCapture log;
    QCOMPARE(outcome(m_caller.read(path)), "Failed 0x0e"_qs);
    QCOMPARE(outcome(m_caller.write(path, "x")), "Failed 0x0e"_qs);
    const QString line = "Request for %1 dropped without an answer"_qs.arg(path);
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL), (QStringList{line, line}));
}

void tst_pending_requests::nothingWaitsLongerThanFiveSeconds()
{
    QVector<ReadRequest> waiting;
    m_tree->characteristic->setReadHandler([&](const ReadRequest& request) { waiting << request; });
    const LogCapture log;
    QElapsedTimer sinceFirst;
    sinceFirst.start();
    const int first = m_caller.startRead(m_path);
    m_caller.ping();
    QTest::qWait(1000);
    QElapsedTimer sinceSecond;
    sinceSecond.start();
    const int second = m_caller.startRead(m_path);
    QCOMPARE(outcome(m_caller.answer(first)), "Failed 0x0e"_qs);
    QVERIFY2(sinceFirst.elapsed() >= 5000, qPrintable(QString::number(sinceFirst.elapsed())));
    QVERIFY(waiting.at(0).isAnswered());
    waiting.at(0).accept("too late");
    // If it had ended with the first one, its answer would be there by now.
    QCOMPARE(outcome(m_caller.answer(second)), "Failed 0x0e"_qs);
    QVERIFY2(sinceSecond.elapsed() >= 5000, qPrintable(QString::number(sinceSecond.elapsed())));
    QVERIFY(waiting.at(1).isAnswered());
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL),
             (QStringList{"Request for /app/aaaa/c0 not answered within 5 s"_qs,
                          "Request for /app/aaaa/c0 not answered within 5 s"_qs}));
}

void tst_pending_requests::aHandlerThatThrowsRejects()
{
    m_tree->characteristic->setReadHandler(
        [](const ReadRequest&) { throw std::runtime_error("no such thing"); });
    m_tree->characteristic->setWriteHandler([](const WriteRequest&) { throw 42; });
    const LogCapture log;
    QCOMPARE(outcome(m_caller.read(m_path)), "Failed 0x0e"_qs);
    QCOMPARE(outcome(m_caller.write(m_path, "x")), "Failed 0x0e"_qs);
    QCOMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL),
             (QStringList{"Handler of /app/aaaa/c0 failed: no such thing"_qs,
                          "Handler of /app/aaaa/c0 failed"_qs}));
    QCOMPARE(m_tree->characteristic->value(), QByteArray());
}

void tst_pending_requests::handlersInsideEachOtherEnd()
{
    QVector<int> calls;
    const auto answered = [&] {
        return std::count_if(calls.cbegin(), calls.cend(),
                             [this](int call) { return m_caller.isAnswered(call); });
    };
    int depth = 0;
    int deepest = 0;
    m_tree->characteristic->setReadHandler([&](const ReadRequest& request) {
        deepest = std::max(deepest, ++depth);
        while (answered() < 8) {
            QTest::qWait(1);
        }
        --depth;
        request.accept("x");
    });
    for (int i = 0; i < 40; ++i) {
        calls << m_caller.startRead(m_path);
    }
    const LogCapture log;
    int accepted = 0;
    for (const int call : calls) {
        accepted += m_caller.answer(call).isReply() ? 1 : 0;
    }
    QCOMPARE(deepest, 32);
    QCOMPARE(accepted, 32);
    QCOMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL)
                 .count("Handler of /app/aaaa/c0 not called: too many are running"_qs),
             8);
}

void tst_pending_requests::noRequestIsAnsweredAlready()
{
    const ReadRequest read;
    const WriteRequest write;
    QVERIFY(read.isAnswered() && write.isAnswered());
    QVERIFY(read.central().isNull() && write.central().isNull());
    read.accept("x");
    read.reject(AttError::UnlikelyError);
    write.accept();
    write.reject(AttError::UnlikelyError);
    QCOMPARE(write.value(), QByteArray());
}

QTEST_GUILESS_MAIN(tst_pending_requests)
#include "tst_pending_requests.moc"
