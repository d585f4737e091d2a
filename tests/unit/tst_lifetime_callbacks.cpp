#include "GattTree.h"
#include "LogCapture.h"

#include <QtTest>

#include <functional>
#include <stdexcept>

namespace {

/** What a read callback does to the tree that it is called from. */
struct Action
{
    const char* name;
    std::function<void(GattTree&)> act;
};

const QVector<Action>& actions()
{
    static const QVector<Action> all{
        {"deletes the descriptor", [](GattTree& tree) { delete tree.descriptor; }},
        {"deletes the characteristic", [](GattTree& tree) { delete tree.plain; }},
        {"deletes the paged characteristic", [](GattTree& tree) { delete tree.paged; }},
        {"deletes the control", [](GattTree& tree) { delete tree.control; }},
        {"deletes the service", [](GattTree& tree) { delete tree.service; }},
        {"deletes the application", [](GattTree& tree) { tree.app.reset(); }},
        {"replaces every callback",
         [](GattTree& tree) {
             for (GattCharacteristic* each : {tree.plain, tree.paged}) {
                 each->setReadCallback([] { return QByteArray("other"); });
             }
             tree.descriptor->setReadCallback([] { return QByteArray("other"); });
         }},
        {"clears every callback",
         [](GattTree& tree) {
             for (GattCharacteristic* each : {tree.plain, tree.paged}) {
                 each->setReadCallback({});
             }
             tree.descriptor->setReadCallback({});
         }},
        {"pushes a value", [](GattTree& tree) { tree.plain->setValue("pushed"); }},
        {"reads again behind the first byte", [](GattTree& tree) { tree.plain->ReadValue(at(1)); }},
    };
    return all;
}

using Read = std::function<QByteArray()>;

} // namespace

class tst_lifetime_callbacks : public QObject
{
    Q_OBJECT

private slots:
    void callbacksMayDoAnythingToTheTree_data();
    void callbacksMayDoAnythingToTheTree();
    void aReplacedCallbackKeepsItsStateUntilItReturns();
    void whatACallbackThrowsIsLoggedAndTheOldValueAnswered_data();
    void whatACallbackThrowsIsLoggedAndTheOldValueAnswered();
    void aThrowingCallbackMayHaveDeletedItsAttribute();
    void aCallbackMayRunAnEventLoopInWhichTheTreeIsDeleted();
    void aCallbackMayReadItsOwnCharacteristic();
};

void tst_lifetime_callbacks::callbacksMayDoAnythingToTheTree_data()
{
    QTest::addColumn<int>("action");
    for (int i = 0; i < actions().size(); ++i) {
        QTest::newRow(actions().at(i).name) << i;
    }
}

void tst_lifetime_callbacks::callbacksMayDoAnythingToTheTree()
{
    QFETCH(int, action);
    for (int reader = 0; reader < 3; ++reader) {
        GattTree tree;
        int calls = 0;
        // The answer lives on the heap with the function, so a function that is destroyed too early shows.
        const Read callback = [&tree, &calls, action, answer = QByteArray(700, 'f')] {
            ++calls;
            actions().at(action).act(tree);
            return answer;
        };
        tree.control->WriteValue("0", {});
        tree.plain->setReadCallback(callback);
        tree.paged->setReadCallback(callback);
        tree.descriptor->setReadCallback(callback);
        const QVector<Read> readers{[&] { return tree.plain->ReadValue({}); },
                                    [&] { return tree.paged->ReadValue({}); },
                                    [&] { return tree.descriptor->ReadValue({}); }};
        const QByteArray answer = readers.at(reader)();
        // Without its control there are no pages any more.
        const bool whole = reader == 0;
        QCOMPARE(calls, 1);
        QVERIFY(answer == QByteArray(whole ? 700 : 512, 'f') ||
                (reader == 1 && answer == QByteArray(700, 'f')));
    }
}

void tst_lifetime_callbacks::aReplacedCallbackKeepsItsStateUntilItReturns()
{
    GattTree tree;
    const auto state = std::make_shared<QByteArray>("state");
    const std::weak_ptr<QByteArray> watch = state;
    tree.plain->setReadCallback([&tree, state] {
        tree.plain->setReadCallback([] { return QByteArray("second"); });
        return *state;
    });
    QCOMPARE(tree.plain->ReadValue({}), QByteArray("state"));
    QCOMPARE(tree.plain->ReadValue({}), QByteArray("second"));
    QCOMPARE(watch.use_count(), 1L);
}

void tst_lifetime_callbacks::whatACallbackThrowsIsLoggedAndTheOldValueAnswered_data()
{
    QTest::addColumn<bool>("isException");
    QTest::newRow("an exception") << true;
    QTest::newRow("a number") << false;
}

void tst_lifetime_callbacks::whatACallbackThrowsIsLoggedAndTheOldValueAnswered()
{
    QFETCH(bool, isException);
    GattTree tree;
    const Read callback = [isException]() -> QByteArray {
        if (isException) {
            throw std::runtime_error("sensor is gone");
        }
        throw 42;
    };
    tree.plain->setValue("old");
    tree.plain->setReadCallback(callback);
    tree.descriptor->WriteValue("old too", {});
    tree.descriptor->setReadCallback(callback);
    const LogCapture log(log4cplus::INFO_LOG_LEVEL);
    QCOMPARE(tree.plain->ReadValue({}), QByteArray("old"));
    QCOMPARE(tree.plain->value(), QByteArray("old"));
    QCOMPARE(tree.plain->cachedValue(), QByteArray("old"));
    QCOMPARE(tree.descriptor->ReadValue({}), QByteArray("old too"));
    QCOMPARE(log.lines().size(), 2);
    QCOMPARE(log.texts(log4cplus::ERROR_LOG_LEVEL).size(), 2);
    QVERIFY(log.lines().at(0).text.contains("e0"_qs));
    QVERIFY(log.lines().at(1).text.contains("2901"_qs));
    QCOMPARE(log.lines().at(0).text.contains("sensor is gone"_qs), isException);
}

void tst_lifetime_callbacks::aThrowingCallbackMayHaveDeletedItsAttribute()
{
    GattTree tree;
    tree.plain->setValue("old");
    tree.plain->setReadCallback([&]() -> QByteArray {
        tree.app.reset();
        throw std::runtime_error("and gone");
    });
    const LogCapture log(log4cplus::ERROR_LOG_LEVEL);
    QCOMPARE(tree.plain->ReadValue({}), QByteArray("old"));
    QCOMPARE(log.lines().size(), 1);
}

void tst_lifetime_callbacks::aCallbackMayRunAnEventLoopInWhichTheTreeIsDeleted()
{
    GattTree tree;
    tree.plain->setReadCallback([&] {
        QEventLoop loop;
        QObject::connect(tree.plain, &QObject::destroyed, &loop, &QEventLoop::quit);
        tree.service->deleteLater();
        loop.exec();
        return QByteArray("after the loop");
    });
    QCOMPARE(tree.plain->ReadValue({}), QByteArray("after the loop"));
    QVERIFY(tree.app->services().isEmpty());
}

void tst_lifetime_callbacks::aCallbackMayReadItsOwnCharacteristic()
{
    GattTree tree;
    int depth = 0;
    tree.plain->setReadCallback([&]() -> QByteArray {
        if (depth == 3) {
            return "deepest";
        }
        ++depth;
        return tree.plain->ReadValue({}) + '.';
    });
    QCOMPARE(tree.plain->ReadValue({}), QByteArray("deepest..."));
    QCOMPARE(tree.plain->value(), QByteArray("deepest..."));
}

QTEST_GUILESS_MAIN(tst_lifetime_callbacks)
#include "tst_lifetime_callbacks.moc"
