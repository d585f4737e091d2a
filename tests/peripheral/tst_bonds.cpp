#include "Device.h"

#include <QSignalSpy>

using plim::Bond;
using plim::Bonds;
using plim::Central;

namespace {

QStringList paths(const Bonds& bonds)
{
    QStringList result;
    const QList<Bond> all = bonds.bonds();
    for (const Bond& bond : all) {
        result << bond.central.path();
    }
    return result;
}

/** The stand-in daemon, two bonded phones and one that is not. */
struct Phones
{
    Phones()
    {
        first.protect("encrypted");
        second.protect("authenticated");
    }

    const PlimBleTest ble;
    PlimBleTest::Phone first{QStringLiteral("00:AA:01:01:00:02")};
    PlimBleTest::Phone second{QStringLiteral("00:AA:01:01:00:03")};
    PlimBleTest::Phone unbonded{QStringLiteral("00:AA:01:01:00:04")};
};

} // namespace

/** Bonds, with the stand-in daemon and its phones. */
class tst_bonds : public QObject
{
    Q_OBJECT

private slots:
    void theBondsAreKnown();
    void bondsComeAndGo();
    void aBondFollowsItsLink();
    void theyAreShownWhileBluezIsAway();
    void oneIsForgotten();
    void whatCannotBeForgottenIsAnError_data();
    void whatCannotBeForgottenIsAnError();
    void allAreForgotten();
    void aResetThatFailsSaysSo();
    void nothingIsForgottenWithoutBluez();
    void theObjectMayEndInEachSignal_data();
    void theObjectMayEndInEachSignal();
};

void tst_bonds::theBondsAreKnown()
{
    Phones phones;
    const Bonds bonds;
    QSignalSpy known(&bonds, &Bonds::known);
    EVENTUALLY_VERIFY(bonds.isKnown());
    QCOMPARE(known.size(), 1);
    QCOMPARE(paths(bonds), (QStringList{phones.first.device(), phones.second.device()}));
    const Bond bond = bonds.bonds().first();
    QCOMPARE(bond.address, QString("00:AA:01:01:00:02"));
    QCOMPARE(bond.name, QString("00-AA-01-01-00-02"));
    QVERIFY(bond.isConnected);
    QVERIFY(bonds.contains(Central(phones.first.device())));
    QVERIFY(!bonds.contains(Central(phones.unbonded.device())) && !bonds.contains(Central()));
}

void tst_bonds::bondsComeAndGo()
{
    Phones phones;
    const Bonds bonds;
    EVENTUALLY_VERIFY(bonds.isKnown());
    QSignalSpy added(&bonds, &Bonds::added);
    QSignalSpy removed(&bonds, &Bonds::removed);
    phones.unbonded.protect("encrypted");
    EVENTUALLY_COMPARE(added.size(), 1);
    QCOMPARE(added.at(0).at(0).value<Bond>().central.path(), phones.unbonded.device());
    QCOMPARE(bonds.bonds().size(), 3);
    phones.first.forget();
    EVENTUALLY_COMPARE(removed.size(), 1);
    QCOMPARE(removed.at(0).at(0).value<Central>().path(), phones.first.device());
    QCOMPARE(bonds.bonds().size(), 2);
}

void tst_bonds::aBondFollowsItsLink()
{
    Phones phones;
    const Bonds bonds;
    EVENTUALLY_VERIFY(bonds.isKnown());
    QSignalSpy changed(&bonds, &Bonds::changed);
    phones.first.disconnect();
    EVENTUALLY_COMPARE(changed.size(), 1);
    QVERIFY(!changed.at(0).at(0).value<Bond>().isConnected && !bonds.bonds().first().isConnected);
    phones.first.connect();
    EVENTUALLY_COMPARE(changed.size(), 2);
    QVERIFY(bonds.bonds().first().isConnected);
    phones.unbonded.disconnect();
    phones.first.disconnect();
    EVENTUALLY_COMPARE(changed.size(), 3);
}

void tst_bonds::theyAreShownWhileBluezIsAway()
{
    Phones phones;
    const Bonds bonds;
    EVENTUALLY_COMPARE(bonds.bonds().size(), 2);
    QSignalSpy removed(&bonds, &Bonds::removed);
    phones.ble.vanish();
    QTest::qWait(200);
    QCOMPARE(bonds.bonds().size(), 2);
    QVERIFY(removed.isEmpty());
    phones.ble.appear();
    // The stand-in announces its phones when they connect.
    phones.second.connect();
    EVENTUALLY_COMPARE(paths(bonds), QStringList{phones.second.device()});
}

void tst_bonds::oneIsForgotten()
{
    Phones phones;
    Bonds bonds;
    EVENTUALLY_COMPARE(bonds.bonds().size(), 2);
    QSignalSpy forgotten(&bonds, &Bonds::forgotten);
    bonds.forget(Central(phones.first.device()));
    EVENTUALLY_COMPARE(forgotten.size(), 1);
    QCOMPARE(forgotten.at(0).at(0).value<Central>().path(), phones.first.device());
    QCOMPARE(forgotten.at(0).at(1).toString(), QString());
    EVENTUALLY_COMPARE(paths(bonds), QStringList{phones.second.device()});
}

void tst_bonds::whatCannotBeForgottenIsAnError_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("error");
    QTest::newRow("unknown") << "/org/bluez/hci0/dev_00_AA_01_01_00_99"
                             << "org.bluez.Error.DoesNotExist";
    QTest::newRow("no adapter") << "/org/bluez/hci7/dev_00_AA_01_01_00_02"
                                << "org.freedesktop.DBus.Error.UnknownMethod";
    QTest::newRow("nobody") << ""
                            << "org.freedesktop.DBus.Error.InvalidArgs";
    QTest::newRow("no path") << "no path"
                             << "org.freedesktop.DBus.Error.InvalidArgs";
}

void tst_bonds::whatCannotBeForgottenIsAnError()
{
    QFETCH(const QString, path);
    QFETCH(const QString, error);
    Phones phones;
    Bonds bonds;
    EVENTUALLY_COMPARE(bonds.bonds().size(), 2);
    QSignalSpy forgotten(&bonds, &Bonds::forgotten);
    bonds.forget(Central(path));
    EVENTUALLY_COMPARE(forgotten.size(), 1);
    const QString told = forgotten.at(0).at(1).toString();
    QVERIFY2(told.startsWith(error), qPrintable(told));
    QCOMPARE(bonds.bonds().size(), 2);
}

void tst_bonds::allAreForgotten()
{
    Phones phones;
    Bonds bonds;
    EVENTUALLY_COMPARE(bonds.bonds().size(), 2);
    QSignalSpy forgotten(&bonds, &Bonds::forgotten);
    QSignalSpy all(&bonds, &Bonds::allForgotten);
    bonds.forgetAll();
    bonds.forgetAll(); // it is at work
    EVENTUALLY_COMPARE(all.size(), 1);
    QCOMPARE(all.at(0).at(0).toString(), QString());
    QCOMPARE(forgotten.size(), 2);
    EVENTUALLY_VERIFY(bonds.bonds().isEmpty());
    bonds.forgetAll(); // nothing is left
    EVENTUALLY_COMPARE(all.size(), 2);
    QCOMPARE(all.at(1).at(0).toString(), QString());
}

void tst_bonds::aResetThatFailsSaysSo()
{
    Phones phones;
    Bonds bonds;
    EVENTUALLY_COMPARE(bonds.bonds().size(), 2);
    QSignalSpy all(&bonds, &Bonds::allForgotten);
    phones.ble.refuse("RemoveDevice", "org.bluez.Error.Failed", "no room");
    bonds.forgetAll();
    EVENTUALLY_COMPARE(all.size(), 1);
    QCOMPARE(all.at(0).at(0).toString(), QString("org.bluez.Error.Failed: no room"));
    QCOMPARE(bonds.bonds().size(), 2);
}

void tst_bonds::nothingIsForgottenWithoutBluez()
{
    Phones phones;
    Bonds bonds;
    EVENTUALLY_COMPARE(bonds.bonds().size(), 2);
    phones.ble.vanish();
    QSignalSpy all(&bonds, &Bonds::allForgotten);
    bonds.forgetAll();
    EVENTUALLY_COMPARE(all.size(), 1);
    const QString error = all.at(0).at(0).toString();
    QVERIFY2(error.startsWith("org.freedesktop.DBus.Error.ServiceUnknown"), qPrintable(error));
    Bonds late;
    QSignalSpy allOfLate(&late, &Bonds::allForgotten);
    late.forgetAll();
    EVENTUALLY_COMPARE(allOfLate.size(), 1);
    QCOMPARE(allOfLate.at(0).at(0).toString(), QString("BlueZ has not told its bonds"));
}

void tst_bonds::theObjectMayEndInEachSignal_data()
{
    QTest::addColumn<QByteArray>("signal");
    for (const char* signal :
         {"known", "added", "changed", "removed", "forgotten", "allForgotten", "forgotten of all"}) {
        QTest::newRow(signal) << QByteArray(signal);
    }
}

void tst_bonds::theObjectMayEndInEachSignal()
{
    QFETCH(const QByteArray, signal);
    Phones phones;
    auto bonds = std::make_unique<Bonds>();
    QObject receiver;
    const auto endIn = [&](auto member, const char* name) {
        if (signal.startsWith(name)) {
            QObject::connect(bonds.get(), member, &receiver, [&] { bonds.reset(); });
        }
    };
    endIn(&Bonds::known, "known");
    if (signal != "known") {
        EVENTUALLY_COMPARE(bonds->bonds().size(), 2);
    }
    endIn(&Bonds::added, "added");
    endIn(&Bonds::changed, "changed");
    endIn(&Bonds::removed, "removed");
    endIn(&Bonds::forgotten, "forgotten");
    endIn(&Bonds::allForgotten, "allForgotten");
    if (signal == "added") {
        phones.unbonded.protect("encrypted");
    } else if (signal == "changed") {
        phones.first.disconnect();
    } else if (signal == "removed") {
        phones.first.forget();
    } else if (signal == "forgotten") {
        bonds->forget(Central(phones.first.device()));
    } else if (signal != "known") {
        bonds->forgetAll();
    }
    EVENTUALLY_VERIFY(!bonds);
}

QTEST_GUILESS_MAIN(tst_bonds)
#include "tst_bonds.moc"
