#include "GattTree.h"
#include "LogCapture.h"

#include <QSignalSpy>
#include <QtTest>

#include <algorithm>
#include <functional>
#include <numeric>

namespace {

using Action = std::function<void(GattTree&)>;

struct Named
{
    const char* name;
    Action act;
};

/** What a slot may delete. */
const QVector<Named>& deletions()
{
    static const QVector<Named> all{
        {"deletes the descriptor", [](GattTree& tree) { delete tree.descriptor; }},
        {"deletes the characteristic", [](GattTree& tree) { delete tree.plain; }},
        {"deletes the control", [](GattTree& tree) { delete tree.control; }},
        {"deletes the paged characteristic", [](GattTree& tree) { delete tree.paged; }},
        {"deletes the service", [](GattTree& tree) { delete tree.service; }},
        {"deletes the application", [](GattTree& tree) { tree.app.reset(); }},
    };
    return all;
}

template <typename Sender, typename Signal>
void once(Sender* sender, Signal signal, const std::function<void()>& act)
{
    auto connection = std::make_shared<QMetaObject::Connection>();
    *connection = QObject::connect(sender, signal, sender, [connection, act] {
        QObject::disconnect(*connection);
        act();
    });
}

/** Each sets a slot on one signal and makes the library emit it. */
struct Emission
{
    const char* name;
    std::function<void(GattTree&, const std::function<void()>&)> provoke;
};

const QVector<Emission>& writesAndNotifications()
{
    static const QVector<Emission> all{
        {"a write to the characteristic",
         [](GattTree& tree, const auto& act) {
             tree.plain->StartNotify();
             once(tree.plain, &GattCharacteristic::valueChanged, act);
             tree.plain->WriteValue("x", {});
         }},
        {"a write to the control",
         [](GattTree& tree, const auto& act) {
             tree.paged->StartNotify();
             tree.control->WriteValue("1", {});
             tree.paged->setValue("parked");
             once(tree.control, &GattCharacteristic::valueChanged, act);
             tree.control->WriteValue("0", {});
         }},
        {"the release of a parked value",
         [](GattTree& tree, const auto& act) {
             tree.paged->StartNotify();
             tree.control->WriteValue("1", {});
             tree.paged->setValue("parked");
             once(tree.paged, &GattCharacteristic::PropertiesChanged, act);
             tree.control->WriteValue("0", {});
         }},
        {"a notification of a pushed value",
         [](GattTree& tree, const auto& act) {
             tree.plain->StartNotify();
             once(tree.plain, &GattCharacteristic::PropertiesChanged, act);
             tree.plain->setValue("x");
         }},
        {"a write to the descriptor",
         [](GattTree& tree, const auto& act) {
             once(tree.descriptor, &GattDescriptor::valueChanged, act);
             tree.descriptor->WriteValue("x", {});
         }},
        {"StartNotify",
         [](GattTree& tree, const auto& act) {
             once(tree.plain, &GattCharacteristic::notifyStateChanged, act);
             tree.plain->StartNotify();
         }},
        {"StopNotify",
         [](GattTree& tree, const auto& act) {
             once(tree.plain, &GattCharacteristic::notifyStateChanged, act);
             tree.plain->StopNotify();
         }},
    };
    return all;
}

const QVector<Emission>& treeChanges()
{
    static const QVector<Emission> all{
        {"applicationChanged of a new service",
         [](GattTree& tree, const auto& act) {
             once(tree.app.get(), &GattApplication::applicationChanged, act);
             tree.app->createService("new"_qs, true);
         }},
        {"handlesChanged of a new characteristic",
         [](GattTree& tree, const auto& act) {
             once(tree.service, &GattService::handlesChanged, act);
             tree.service->createCharacteristic("new"_qs, readWrite, tree.control);
         }},
        {"applicationChanged of a new characteristic",
         [](GattTree& tree, const auto& act) {
             once(tree.app.get(), &GattApplication::applicationChanged, act);
             tree.service->createCharacteristic("new"_qs, readWrite, tree.control);
         }},
        {"handlesChanged of a new descriptor",
         [](GattTree& tree, const auto& act) {
             once(tree.plain, &GattCharacteristic::handlesChanged, act);
             tree.plain->addDescriptor("new"_qs, GattDescriptor::Read);
         }},
        {"applicationChanged of a new descriptor",
         [](GattTree& tree, const auto& act) {
             once(tree.app.get(), &GattApplication::applicationChanged, act);
             tree.plain->addDescriptor("new"_qs, GattDescriptor::Read);
         }},
    };
    return all;
}

const QVector<Emission>& emissions()
{
    static const QVector<Emission> all = writesAndNotifications() + treeChanges();
    return all;
}

/** Emissions by a child that is just dying; its own pointer is out of bounds for the slot. */
struct Death
{
    const char* name;
    QObject* (*victim)(GattTree&);
};

const QVector<Death>& deaths()
{
    static const QVector<Death> all{
        {"a dying descriptor", [](GattTree& tree) -> QObject* { return tree.descriptor; }},
        {"a dying characteristic", [](GattTree& tree) -> QObject* { return tree.paged; }},
        {"a dying control", [](GattTree& tree) -> QObject* { return tree.control; }},
        {"a dying service", [](GattTree& tree) -> QObject* { return tree.service; }},
    };
    return all;
}

} // namespace

class tst_lifetime_deletion : public QObject
{
    Q_OBJECT

private slots:
    void slotsMayDeleteAnythingInTheTree_data();
    void slotsMayDeleteAnythingInTheTree();
    void slotsRaisedByADyingChildMayDeleteItsAncestors_data();
    void slotsRaisedByADyingChildMayDeleteItsAncestors();
    void factoriesReturnNullForWhatASlotDeleted();
    void aDeadControlCountsAsNone();
    void aDeadControlReleasesNothing();
    void treesMayBeDestroyedInAnyOrder_data();
    void treesMayBeDestroyedInAnyOrder();
    void aServiceThatDeletesItsChildrenMayBeAsked();
    void theTreeMayBeReadWhileAChildIsDying();
};

void tst_lifetime_deletion::slotsMayDeleteAnythingInTheTree_data()
{
    QTest::addColumn<int>("emission");
    QTest::addColumn<int>("deletion");
    for (int emission = 0; emission < emissions().size(); ++emission) {
        const Emission& named = emissions().at(emission);
        for (int deletion = 0; deletion < deletions().size(); ++deletion) {
            QTest::addRow("%s %s", named.name, deletions().at(deletion).name) << emission << deletion;
        }
    }
}

void tst_lifetime_deletion::slotsMayDeleteAnythingInTheTree()
{
    QFETCH(int, emission);
    QFETCH(int, deletion);
    const LogCapture everyLineIsBuilt;
    GattTree tree;
    int acted = 0;
    emissions().at(emission).provoke(tree, [&] {
        ++acted;
        deletions().at(deletion).act(tree);
    });
    QCOMPARE(acted, 1);
    if (tree.app) {
        QVERIFY(tree.app->GetManagedObjects().size() <= 7);
    }
}

void tst_lifetime_deletion::slotsRaisedByADyingChildMayDeleteItsAncestors_data()
{
    QTest::addColumn<int>("death");
    QTest::addColumn<bool>("application");
    for (int death = 0; death < deaths().size(); ++death) {
        QTest::addRow("%s takes the application along", deaths().at(death).name) << death << true;
        if (qstrcmp(deaths().at(death).name, "a dying service") != 0) {
            QTest::addRow("%s takes the service along", deaths().at(death).name) << death << false;
        }
    }
}

void tst_lifetime_deletion::slotsRaisedByADyingChildMayDeleteItsAncestors()
{
    QFETCH(int, death);
    QFETCH(bool, application);
    const LogCapture everyLineIsBuilt;
    GattTree tree;
    int acted = 0;
    once(tree.app.get(), &GattApplication::applicationChanged, [&] {
        ++acted;
        if (application) {
            tree.app.reset();
        } else {
            delete tree.service;
        }
    });
    delete deaths().at(death).victim(tree);
    QCOMPARE(acted, 1);
}

void tst_lifetime_deletion::factoriesReturnNullForWhatASlotDeleted()
{
    GattTree tree;
    once(tree.app.get(), &GattApplication::applicationChanged, [&] { delete tree.app->services().at(1); });
    QVERIFY(!tree.app->createService("new"_qs, true));
    once(tree.service, &GattService::handlesChanged, [&] { delete tree.service->characteristics().at(3); });
    QVERIFY(!tree.service->createCharacteristic("new"_qs, readWrite, nullptr));
    once(tree.plain, &GattCharacteristic::handlesChanged, [&] { delete tree.plain->descriptors().at(1); });
    QVERIFY(!tree.plain->addDescriptor("new"_qs, GattDescriptor::Read));
    QCOMPARE(tree.app->GetManagedObjects().size(), 5);
}

void tst_lifetime_deletion::aDeadControlCountsAsNone()
{
    GattTree tree;
    tree.paged->setValue(numberedBytes(1300));
    tree.control->WriteValue("1", {});
    delete tree.control;
    QCOMPARE(tree.paged->ReadValue({}), numberedBytes(1300));
    tree.paged->WriteValue("new", at(3));
    QCOMPARE(tree.paged->value(), QByteArray(numberedBytes(3) + "new"));
    tree.paged->setValue("pushed");
    QCOMPARE(tree.paged->value(), QByteArray("pushed"));
}

void tst_lifetime_deletion::aDeadControlReleasesNothing()
{
    GattTree tree;
    tree.control->WriteValue("1", {});
    tree.paged->setValue("parked");
    once(tree.control, &GattCharacteristic::valueChanged, [&] { delete tree.control; });
    tree.control->WriteValue("0", {});
    QCOMPARE(tree.service->characteristics(), (QList<GattCharacteristic*>{tree.paged, tree.plain}));
}

void tst_lifetime_deletion::treesMayBeDestroyedInAnyOrder_data()
{
    QTest::addColumn<QVector<int>>("order");
    // Bottom up, top down and everything between; what went with its parent is skipped.
    QVector<int> order(deletions().size());
    std::iota(order.begin(), order.end(), 0);
    do {
        QByteArray name;
        for (const int i : order) {
            name += char('0' + i);
        }
        QTest::newRow(name.constData()) << order;
    } while (std::next_permutation(order.begin(), order.end()));
}

void tst_lifetime_deletion::treesMayBeDestroyedInAnyOrder()
{
    QFETCH(QVector<int>, order);
    GattTree tree;
    const QVector<QPointer<QObject>> objects{tree.descriptor, tree.plain,   tree.control,
                                             tree.paged,      tree.service, tree.app.get()};
    for (const int i : order) {
        if (objects.at(i)) {
            deletions().at(i).act(tree);
        }
        QVERIFY(!objects.at(i));
    }
}

void tst_lifetime_deletion::aServiceThatDeletesItsChildrenMayBeAsked()
{
    const LogCapture everyLineIsBuilt;
    GattTree tree;
    QDBusObjectPath service;
    QDBusObjectPath characteristic;
    // The service is a mere QObject by then, and its children go one by one.
    connect(tree.control, &QObject::destroyed, tree.plain, [&] {
        service = tree.plain->service();
        characteristic = tree.descriptor->characteristic();
        tree.plain->dbusInterfaceList();
        tree.plain->GetAll(characteristicInterface());
        tree.plain->ReadValue({});
        tree.paged->ReadValue({});
        tree.paged->setValue("x");
        tree.paged->WriteValue("x", {});
    });
    delete tree.service;
    QCOMPARE(service, QDBusObjectPath("/app/aaaa_bbbb"_qs));
    QCOMPARE(characteristic, QDBusObjectPath("/app/aaaa_bbbb/e0"_qs));
}

void tst_lifetime_deletion::theTreeMayBeReadWhileAChildIsDying()
{
    GattTree tree;
    QStringList paths;
    connect(tree.app.get(), &GattApplication::applicationChanged, tree.app.get(), [&] {
        for (const QDBusObjectPath& path : tree.app->GetManagedObjects().keys()) {
            paths << path.path();
        }
    });
    delete tree.plain;
    QCOMPARE(paths, (QStringList{"/app/aaaa_bbbb"_qs, "/app/aaaa_bbbb/c0"_qs, "/app/aaaa_bbbb/d0_1"_qs}));
}

QTEST_GUILESS_MAIN(tst_lifetime_deletion)
#include "tst_lifetime_deletion.moc"
