#include "Attributes.h"
#include "LogCapture.h"
#include "OwnerThread.h"

#include <QPointer>
#include <QtTest>

#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>

using plim::Access;
using plim::AttError;
using plim::ReadRequest;
using plim::WriteRequest;

namespace {

using Deed = std::function<void(Attributes&)>;

/** What a handler or slot may end while it runs. */
void addDeeds()
{
    QTest::addColumn<Deed>("deed");
    QTest::newRow("descriptor") << Deed([](Attributes& tree) { delete tree.descriptor; });
    QTest::newRow("characteristic") << Deed([](Attributes& tree) { delete tree.characteristic; });
    QTest::newRow("service") << Deed([](Attributes& tree) { delete tree.service; });
    QTest::newRow("application") << Deed([](Attributes& tree) { tree.app.reset(); });
    QTest::newRow("handlers") << Deed([](Attributes& tree) {
        tree.characteristic->setReadHandler({});
        tree.characteristic->setWriteHandler({});
        tree.descriptor->setReadHandler({});
        tree.descriptor->setWriteHandler({});
    });
}

} // namespace

Q_DECLARE_METATYPE(Deed)

class tst_request_lifetimes : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_tree = std::make_unique<Attributes>(Access().read().write().notify()); }
    void cleanup() { m_tree.reset(); }
    void handlersMayEndWhatTheyServe_data() { addDeeds(); }
    void handlersMayEndWhatTheyServe();
    void slotsOfAcceptedWritesMayEndWhatTheyServe_data() { addDeeds(); }
    void slotsOfAcceptedWritesMayEndWhatTheyServe();
    void answersMayComeAfterAllHasEnded_data() { addDeeds(); }
    void answersMayComeAfterAllHasEnded();
    void openRequestsAreRejectedWithTheirAttribute();
    void theProgramMayAnswerInDestructors();
    void answersInSlotsOfTheEndDoNothing();
    void handlersMayReplaceThemselves();
    void handlersMayOwnTheirRequests();
    void aHandlerThatThrowsMayHaveDeletedItsAttribute();
    void theCallerMayBeGone();
    void tokensMayOutliveTheirThread();
    void attributesMayEndWhileOtherThreadsAnswer();
    void nothingRunsForAnOwnerThatHasEnded();
    void strangersGetAnswersAndDoNoHarm();

private:
    const QString m_characteristicPath = "/app/aaaa/c0"_qs;
    const QString m_descriptorPath = "/app/aaaa/c0/d0"_qs;
    Caller m_caller;
    std::unique_ptr<Attributes> m_tree;
};

void tst_request_lifetimes::handlersMayEndWhatTheyServe()
{
    QFETCH(Deed, deed);
    for (const bool answersFirst : {true, false}) {
        for (const QString& path : {m_characteristicPath, m_descriptorPath}) {
            for (const bool reads : {true, false}) {
                m_tree.reset();
                init();
                const auto readHandler = [&, answersFirst](const ReadRequest& request) {
                    const auto& ownDeed = deed;
                    if (answersFirst) {
                        request.accept("x");
                    }
                    ownDeed(*m_tree);
                    request.accept("y");
                };
                const auto writeHandler = [&, answersFirst](const WriteRequest& request) {
                    if (answersFirst) {
                        request.accept();
                    }
                    deed(*m_tree);
                    request.accept();
                };
                m_tree->characteristic->setReadHandler(readHandler);
                m_tree->characteristic->setWriteHandler(writeHandler);
                m_tree->descriptor->setReadHandler(readHandler);
                m_tree->descriptor->setWriteHandler(writeHandler);
                const BusMessage reply = reads ? m_caller.read(path) : m_caller.write(path, "new");
                const QString name = outcome(reply);
                QVERIFY2(name == "method_return"_qs || (!answersFirst && name == "Failed 0x0e"_qs),
                         qPrintable(name));
            }
        }
    }
}

void tst_request_lifetimes::slotsOfAcceptedWritesMayEndWhatTheyServe()
{
    QFETCH(Deed, deed);
    const auto accept = [](const WriteRequest& request) { request.accept(WriteRequest::Notify); };
    m_tree->characteristic->setWriteHandler(accept);
    m_tree->descriptor->setWriteHandler(accept);
    m_caller.plainCall(m_characteristicPath, "StartNotify");
    QObject::connect(m_tree->characteristic, &GattCharacteristic::valueChanged, this, [&] { deed(*m_tree); });
    QCOMPARE(outcome(m_caller.write(m_characteristicPath, "x")), "method_return"_qs);
    m_tree.reset();
    init();
    m_tree->descriptor->setWriteHandler(accept);
    QObject::connect(m_tree->descriptor, &GattDescriptor::valueChanged, this, [&] { deed(*m_tree); });
    QCOMPARE(outcome(m_caller.write(m_descriptorPath, "x")), "method_return"_qs);
}

void tst_request_lifetimes::answersMayComeAfterAllHasEnded()
{
    QFETCH(Deed, deed);
    QVector<ReadRequest> reads;
    QVector<WriteRequest> writes;
    const auto keepRead = [&](const ReadRequest& request) { reads << request; };
    const auto keepWrite = [&](const WriteRequest& request) { writes << request; };
    m_tree->characteristic->setReadHandler(keepRead);
    m_tree->characteristic->setWriteHandler(keepWrite);
    m_tree->descriptor->setReadHandler(keepRead);
    m_tree->descriptor->setWriteHandler(keepWrite);
    const QVector<int> calls{m_caller.startRead(m_characteristicPath), m_caller.startRead(m_descriptorPath),
                             m_caller.startWrite(m_characteristicPath, "x"),
                             m_caller.startWrite(m_descriptorPath, "y")};
    m_caller.ping();
    QCOMPARE(reads.size() + writes.size(), 4);
    deed(*m_tree);
    for (const ReadRequest& request : reads) {
        request.accept("late");
        QVERIFY(request.isAnswered());
    }
    for (const WriteRequest& request : writes) {
        request.accept();
        QVERIFY(request.isAnswered());
    }
    for (const int call : calls) {
        const QString name = outcome(m_caller.answer(call));
        QVERIFY2(name == "method_return"_qs || name == "Failed 0x0e"_qs, qPrintable(name));
    }
}

void tst_request_lifetimes::openRequestsAreRejectedWithTheirAttribute()
{
    QVector<ReadRequest> reads;
    QVector<WriteRequest> writes;
    m_tree->characteristic->setReadHandler([&](const ReadRequest& request) { reads << request; });
    m_tree->characteristic->setWriteHandler([&](const WriteRequest& request) { writes << request; });
    const int read = m_caller.startRead(m_characteristicPath);
    const int write = m_caller.startWrite(m_characteristicPath, "x");
    m_caller.ping();
    const LogCapture log;
    delete m_tree->characteristic;
    QVERIFY(reads.first().isAnswered() && writes.first().isAnswered());
    QCOMPARE(outcome(m_caller.answer(read)), "Failed 0x0e"_qs);
    QCOMPARE(outcome(m_caller.answer(write)), "Failed 0x0e"_qs);
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL), QStringList());
}

void tst_request_lifetimes::theProgramMayAnswerInDestructors()
{
    /** Part of a program: answers when it ends, as a child of what it serves. */
    struct Worker : QObject
    {
        using QObject::QObject;
        ~Worker() override
        {
            read.accept("last words");
            write.accept();
        }
        ReadRequest read;
        WriteRequest write;
    };
    auto* child = new Worker(m_tree->characteristic);
    auto other = std::make_unique<Worker>();
    m_tree->characteristic->setReadHandler([&](const ReadRequest& request) { child->read = request; });
    m_tree->characteristic->setWriteHandler([&](const WriteRequest& request) { child->write = request; });
    m_tree->descriptor->setReadHandler([&](const ReadRequest& request) { other->read = request; });
    m_tree->descriptor->setWriteHandler([&](const WriteRequest& request) { other->write = request; });
    const int read = m_caller.startRead(m_descriptorPath);
    const int write = m_caller.startWrite(m_descriptorPath, "x");
    const int readOfChild = m_caller.startRead(m_characteristicPath);
    const int writeOfChild = m_caller.startWrite(m_characteristicPath, "x");
    m_caller.ping();
    other.reset();
    QCOMPARE(m_caller.answer(read).bytes(), QByteArray("last words"));
    QCOMPARE(outcome(m_caller.answer(write)), "method_return"_qs);
    QCOMPARE(m_tree->descriptor->value(), QByteArray("x"));
    delete m_tree->characteristic;
    QVERIFY(m_caller.answer(readOfChild).isError());
    QVERIFY(m_caller.answer(writeOfChild).isError());
}

void tst_request_lifetimes::answersInSlotsOfTheEndDoNothing()
{
    WriteRequest kept;
    m_tree->characteristic->setWriteHandler([&](const WriteRequest& request) { kept = request; });
    const int write = m_caller.startWrite(m_characteristicPath, "x");
    m_caller.ping();
    QObject::connect(m_tree->characteristic, &QObject::destroyed, this, [&] { kept.accept(); });
    delete m_tree->characteristic;
    QCOMPARE(outcome(m_caller.answer(write)), "Failed 0x0e"_qs);
}

void tst_request_lifetimes::handlersMayReplaceThemselves()
{
    const auto owned = std::make_shared<QByteArray>("first");
    m_tree->characteristic->setReadHandler([this, owned](const ReadRequest& request) {
        m_tree->characteristic->setReadHandler([](const ReadRequest& later) { later.accept("second"); });
        request.accept(*owned);
    });
    QCOMPARE(m_caller.read(m_characteristicPath).bytes(), QByteArray("first"));
    QCOMPARE(m_caller.read(m_characteristicPath).bytes(), QByteArray("second"));
    QCOMPARE(owned.use_count(), 1L);
}

void tst_request_lifetimes::handlersMayOwnTheirRequests()
{
    // The requests end with the handler, which ends with the characteristic.
    m_tree->characteristic->setReadHandler(
        [kept = std::make_shared<QVector<ReadRequest>>()](const ReadRequest& request) { *kept << request; });
    m_tree->characteristic->setWriteHandler([kept = std::make_shared<QVector<WriteRequest>>()](
                                                const WriteRequest& request) { *kept << request; });
    const int read = m_caller.startRead(m_characteristicPath);
    const int write = m_caller.startWrite(m_characteristicPath, "x");
    m_caller.ping();
    delete m_tree->characteristic;
    QCOMPARE(outcome(m_caller.answer(read)), "Failed 0x0e"_qs);
    QCOMPARE(outcome(m_caller.answer(write)), "Failed 0x0e"_qs);
}

void tst_request_lifetimes::aHandlerThatThrowsMayHaveDeletedItsAttribute()
{
    m_tree->characteristic->setReadHandler([this](const ReadRequest&) {
        delete m_tree->characteristic;
        throw std::runtime_error("all gone");
    });
    const LogCapture log;
    QCOMPARE(outcome(m_caller.read(m_characteristicPath)), "Failed 0x0e"_qs);
    QCOMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL),
             QStringList{"Handler of /app/aaaa/c0 failed: all gone"_qs});
}

void tst_request_lifetimes::theCallerMayBeGone()
{
    ReadRequest read;
    WriteRequest write;
    m_tree->characteristic->setReadHandler([&](const ReadRequest& request) { read = request; });
    m_tree->characteristic->setWriteHandler([&](const WriteRequest& request) { write = request; });
    {
        Caller passing;
        passing.startRead(m_characteristicPath);
        passing.startWrite(m_characteristicPath, "x");
        passing.ping();
    }
    const LogCapture log;
    read.accept("nobody hears this");
    write.accept();
    QCOMPARE(m_tree->characteristic->value(), QByteArray("x"));
    m_tree->characteristic->setReadHandler({});
    QCOMPARE(m_caller.read(m_characteristicPath).bytes(), QByteArray("x"));
    QCOMPARE(log.texts(log4cplus::WARN_LOG_LEVEL), QStringList());
}

void tst_request_lifetimes::tokensMayOutliveTheirThread()
{
    std::thread thread;
    m_tree->characteristic->setWriteHandler([&](const WriteRequest& request) {
        thread = std::thread([request] {}); // the last copy may go on either thread
    });
    QCOMPARE(outcome(m_caller.write(m_characteristicPath, "x")), "Failed 0x0e"_qs);
    thread.join();
}

void tst_request_lifetimes::attributesMayEndWhileOtherThreadsAnswer()
{
    for (int i = 0; i < 100; ++i) {
        std::thread writer;
        m_tree->characteristic->setWriteHandler(
            [&](const WriteRequest& request) { writer = std::thread([request] { request.accept(); }); });
        const int call = m_caller.startWrite(m_characteristicPath, "x");
        EVENTUALLY_VERIFY(writer.joinable());
        m_tree.reset();
        writer.join();
        const QString name = outcome(m_caller.answer(call));
        QVERIFY2(name == "method_return"_qs || name == "Failed 0x0e"_qs, qPrintable(name));
        init();
    }
}

void tst_request_lifetimes::nothingRunsForAnOwnerThatHasEnded()
{
    QStringList done;
    auto object = std::make_unique<QObject>();
    plim::detail::OwnerThread owner(object.get());
    owner.run([&] { done << "at once"_qs; });
    std::thread([&] { owner.run([&] { done << "queued"_qs; }); }).join();
    QCOMPARE(done, QStringList{"at once"_qs});
    QCoreApplication::processEvents();
    QCOMPARE(done, (QStringList{"at once"_qs, "queued"_qs}));
    // The owner still stands, as it does while its destructor runs.
    owner.end();
    owner.run([&] { done << "too late"_qs; });
    std::thread([&] { owner.run([&] { done << "too late"_qs; }); }).join();
    QCoreApplication::processEvents();
    QCOMPARE(done.size(), 2);
}

void tst_request_lifetimes::strangersGetAnswersAndDoNoHarm()
{
    m_tree->characteristic->setReadHandler([](const ReadRequest& request) { request.accept("x"); });
    m_tree->characteristic->setWriteHandler([](const WriteRequest& request) { request.accept(); });
    m_tree->characteristic->trackSubscribers();
    const QString interface = "org.bluez.GattCharacteristic1"_qs;
    const QList<QStringList> options{
        {"0"_qs},
        {"1"_qs, "device"_qs, "s"_qs, "no path"_qs},
        {"1"_qs, "device"_qs, "ay"_qs, "00"_qs},
        {"1"_qs, "offset"_qs, "i"_qs, "-1"_qs},
        {"1"_qs, "offset"_qs, "i"_qs, "2147483647"_qs},
        {"1"_qs, "offset"_qs, "t"_qs, "18446744073709551615"_qs},
        {"1"_qs, "offset"_qs, "s"_qs, "many"_qs},
        {"1"_qs, "mtu"_qs, "i"_qs, "-5"_qs},
        {"1"_qs, "link"_qs, "o"_qs, "/x"_qs},
    };
    for (const QStringList& each : options) {
        QVERIFY(
            !m_caller.call(m_characteristicPath, interface, "ReadValue"_qs, "a{sv}"_qs, each).type.isEmpty());
        QVERIFY(!m_caller
                     .call(m_characteristicPath, interface, "WriteValue"_qs, "aya{sv}"_qs,
                           QStringList{"616263"_qs} + each)
                     .type.isEmpty());
        QVERIFY(
            m_caller.call(m_characteristicPath, interface, "AcquireNotify"_qs, "a{sv}"_qs, each).isError());
    }
    QVERIFY(m_caller.call(m_characteristicPath, interface, "AcquireNotify"_qs, "s"_qs, {"x"_qs}).isError());
    QVERIFY(m_tree->characteristic->value().size() <= 512);
    QCOMPARE(m_tree->characteristic->subscribers().size(), 0);
    QCOMPARE(m_caller.read(m_characteristicPath).bytes(), QByteArray("x"));
}

QTEST_GUILESS_MAIN(tst_request_lifetimes)
#include "tst_request_lifetimes.moc"
