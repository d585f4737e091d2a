#include "BleManager.h"
#include "GapAdvertisement.h"
#include "GattTree.h"

#include <QEventLoop>
#include <QPointer>
#include <QTimer>
#include <QtTest>

/**
 * What happens to an object while it ends, when only the QObject is left of it: the cases that random lives
 * have found.
 */
class tst_lifetime_endings : public QObject
{
    Q_OBJECT

private slots:
    void aControlMayBeWrittenWhileItsDataCharacteristicEnds();
    void aServiceMayBeDeletedWhileItsApplicationEnds();
    void aCharacteristicMayBeDeletedWhileItsServiceEnds();
    void aDescriptorMayBeDeletedWhileItsCharacteristicEnds();
    void anApplicationMayBeDeletedWhileItsManagerEnds();
    void aChildThatWaitsToBeDeletedMayBeDeletedAtOnce();
};

void tst_lifetime_endings::aControlMayBeWrittenWhileItsDataCharacteristicEnds()
{
    GattTree tree;
    tree.control->WriteValue("1", {});
    tree.paged->setValue("parked");
    connect(tree.paged, &QObject::destroyed, [&tree] { tree.control->WriteValue("0", {}); });
    delete tree.paged;
    QCOMPARE(tree.control->value(), QByteArray("0"));
}

void tst_lifetime_endings::aServiceMayBeDeletedWhileItsApplicationEnds()
{
    GattTree tree;
    const QPointer<GattService> service = tree.service;
    connect(tree.app.get(), &QObject::destroyed, [&service] { delete service; });
    tree.app.reset();
    QVERIFY(!service);
}

void tst_lifetime_endings::aCharacteristicMayBeDeletedWhileItsServiceEnds()
{
    GattTree tree;
    const QPointer<GattCharacteristic> characteristic = tree.plain;
    connect(tree.service, &QObject::destroyed, [&characteristic] { delete characteristic; });
    delete tree.service;
    QVERIFY(!characteristic);
}

void tst_lifetime_endings::aDescriptorMayBeDeletedWhileItsCharacteristicEnds()
{
    GattTree tree;
    const QPointer<GattDescriptor> descriptor = tree.descriptor;
    connect(tree.plain, &QObject::destroyed, [&descriptor] { delete descriptor; });
    delete tree.plain;
    QVERIFY(!descriptor);
}

void tst_lifetime_endings::anApplicationMayBeDeletedWhileItsManagerEnds()
{
    GattTree tree;
    auto adv = std::make_unique<GapAdvertisement>(nullptr, "/adv");
    auto manager = std::make_unique<BleManager>(nullptr);
    manager->add(tree.app.get());
    manager->add(adv.get());
    connect(manager.get(), &QObject::destroyed, [&] {
        adv->setAppearance(1);
        adv.reset();
        tree.app.reset();
    });
    manager.reset();
    QVERIFY(!tree.app);
}

void tst_lifetime_endings::aChildThatWaitsToBeDeletedMayBeDeletedAtOnce()
{
    GattTree tree;
    // An event loop inside what its end sets off must not delete it again.
    connect(tree.app.get(), &GattApplication::applicationChanged, tree.app.get(), [] {
        QEventLoop loop;
        QTimer::singleShot(0, &loop, &QEventLoop::quit);
        loop.exec();
    });
    QEventLoop outer; // what waits to be deleted waits for a loop as deep as the one it was posted in
    QTimer::singleShot(0, &outer, [&] {
        tree.descriptor->deleteLater();
        delete tree.descriptor;
        tree.plain->deleteLater();
        delete tree.plain;
        tree.service->deleteLater();
        delete tree.service;
        outer.quit();
    });
    outer.exec();
    QVERIFY(tree.app->services().isEmpty());
}

QTEST_GUILESS_MAIN(tst_lifetime_endings)
#include "tst_lifetime_endings.moc"
