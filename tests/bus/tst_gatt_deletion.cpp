#include "GattTree.h"
#include "LogCapture.h"
#include "RawBusClient.h"

#include <QtTest>

#include <stdexcept>

class tst_gatt_deletion : public QObject
{
    Q_OBJECT

private slots:
    void aReadIsAnsweredThoughItsCallbackDeletesTheTree_data();
    void aReadIsAnsweredThoughItsCallbackDeletesTheTree();
    void aReadIsAnsweredThoughItsCallbackThrows();
    void aCallbackThatRunsAnEventLoopServesOtherCallsMeanwhile();
    void aWriteIsAnsweredThoughASlotDeletesTheTree();
    void startNotifyIsAnsweredThoughASlotDeletesTheTree();
    void theServiceIsReadWhileItDeletesItsChildren();

private:
    int startRead(const QString& path)
    {
        return m_client.start({path, characteristicInterface(), "ReadValue"_qs, "a{sv}"_qs, {"0"_qs}});
    }

    RawBusClient m_client;
};

void tst_gatt_deletion::aReadIsAnsweredThoughItsCallbackDeletesTheTree_data()
{
    QTest::addColumn<int>("victim");
    QTest::newRow("characteristic") << 0;
    QTest::newRow("service") << 1;
    QTest::newRow("application") << 2;
}

void tst_gatt_deletion::aReadIsAnsweredThoughItsCallbackDeletesTheTree()
{
    QFETCH(int, victim);
    GattTree tree;
    const QString path = tree.plain->dbusPath();
    tree.plain->setReadCallback([&tree, victim] {
        if (victim == 2) {
            tree.app.reset();
        } else {
            delete (victim == 0 ? static_cast<QObject*>(tree.plain) : tree.service);
        }
        return QByteArray("last words");
    });
    QCOMPARE(m_client.answer(startRead(path)).bytes(), QByteArray("last words"));
    QCOMPARE(m_client.answer(startRead(path)).errorName, "org.freedesktop.DBus.Error.UnknownObject"_qs);
}

void tst_gatt_deletion::aReadIsAnsweredThoughItsCallbackThrows()
{
    const LogCapture silence(log4cplus::OFF_LOG_LEVEL);
    GattTree tree;
    tree.plain->setValue("old");
    tree.plain->setReadCallback([]() -> QByteArray { throw std::runtime_error("no sensor"); });
    QCOMPARE(m_client.answer(startRead(tree.plain->dbusPath())).bytes(), QByteArray("old"));
    tree.plain->setReadCallback([]() -> QByteArray { throw 1; });
    QCOMPARE(m_client.answer(startRead(tree.plain->dbusPath())).bytes(), QByteArray("old"));
}

void tst_gatt_deletion::aCallbackThatRunsAnEventLoopServesOtherCallsMeanwhile()
{
    GattTree tree;
    tree.control->setValue("quick");
    QByteArray meanwhile;
    tree.plain->setReadCallback([&] {
        meanwhile = m_client.answer(startRead(tree.control->dbusPath())).bytes();
        return QByteArray("slow");
    });
    QCOMPARE(m_client.answer(startRead(tree.plain->dbusPath())).bytes(), QByteArray("slow"));
    QCOMPARE(meanwhile, QByteArray("quick"));
}

void tst_gatt_deletion::aWriteIsAnsweredThoughASlotDeletesTheTree()
{
    GattTree tree;
    tree.plain->StartNotify();
    connect(tree.plain, &GattCharacteristic::valueChanged, this, [&] { tree.app.reset(); });
    const BusMessage reply = m_client.call(tree.plain->dbusPath(), characteristicInterface(), "WriteValue"_qs,
                                           "aya{sv}"_qs, {"61"_qs, "0"_qs});
    QCOMPARE(reply.type, "method_return"_qs);
    QVERIFY(!tree.app);
}

void tst_gatt_deletion::startNotifyIsAnsweredThoughASlotDeletesTheTree()
{
    GattTree tree;
    connect(tree.plain, &GattCharacteristic::notifyStateChanged, this, [&] { delete tree.service; });
    const BusMessage reply =
        m_client.call(tree.plain->dbusPath(), characteristicInterface(), "StartNotify"_qs);
    QCOMPARE(reply.type, "method_return"_qs);
    QVERIFY(tree.app->services().isEmpty());
}

void tst_gatt_deletion::theServiceIsReadWhileItDeletesItsChildren()
{
    GattTree tree;
    BusMessage reply;
    const QString path = tree.plain->dbusPath();
    connect(tree.control, &QObject::destroyed, this,
            [&] { reply = m_client.get(path, characteristicInterface(), "Service"_qs); });
    delete tree.service;
    // The answer or the news that nobody is there any more; which of them is Qt's business.
    QVERIFY2(reply.text == R"(<o "/app/aaaa_bbbb">)"_qs ||
                 reply.errorName == "org.freedesktop.DBus.Error.UnknownObject"_qs,
             qPrintable(reply.type + reply.errorName + reply.text));
}

QTEST_GUILESS_MAIN(tst_gatt_deletion)
#include "tst_gatt_deletion.moc"
