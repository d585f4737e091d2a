#include "Literals.h"

#include <plim/peripheral.h>

#include <QSet>
#include <QtTest>

using plim::Access;
using plim::AttError;

class tst_access : public QObject
{
    Q_OBJECT

private slots:
    void flagsStandInOneOrder_data();
    void flagsStandInOneOrder();
    void theOrderOfAskingDoesNotMatter();
    void theLaterLevelCounts();
    void anAccessStaysAsItIsWhenMoreIsAskedOfIt();
    void aDescriptorReadsAndWritesOnly();
    void onlyLevelsProtect_data();
    void onlyLevelsProtect();
    void errorsHaveTheirNumbersAndNames_data();
    void errorsHaveTheirNumbersAndNames();
    void otherNumbersAreUnlikely_data();
    void otherNumbersAreUnlikely();
    void centralsAreTheirPaths();
};

void tst_access::flagsStandInOneOrder_data()
{
    QTest::addColumn<Access>("access");
    QTest::addColumn<QString>("text");
    const auto row = [](const Access& access, const char* text) {
        QTest::newRow(text) << access << QString::fromLatin1(text);
    };
    row(Access(), "nothing");
    row(Access().read(), "read");
    row(Access().read(Access::Encrypted), "encrypt-read");
    row(Access().read(Access::Authenticated), "encrypt-authenticated-read");
    row(Access().read(Access::SecureConnections), "secure-read");
    row(Access().write(), "write");
    row(Access().write(Access::Encrypted), "encrypt-write");
    row(Access().write(Access::Authenticated), "encrypt-authenticated-write");
    row(Access().write(Access::SecureConnections), "secure-write");
    row(Access().writeWithoutResponse(), "write-without-response");
    row(Access().notify(), "notify");
    row(Access().notify(Access::Encrypted), "encrypt-notify");
    row(Access().indicate(Access::Authenticated), "encrypt-authenticated-indicate");
    row(Access().indicate(Access::SecureConnections), "secure-indicate");
    row(Access().read().write().notify(), "read, write, notify");
    row(Access().indicate().notify().writeWithoutResponse().write(Access::Encrypted).read(),
        "read, encrypt-write, write-without-response, notify, indicate");
}

void tst_access::flagsStandInOneOrder()
{
    QFETCH(Access, access);
    QTEST(access.text(), "text");
    const QString flags = access.flags().join(", "_qs);
    QCOMPARE(flags, access == Access() ? QString() : access.text());
}

void tst_access::theOrderOfAskingDoesNotMatter()
{
    QCOMPARE(Access().read().notify(Access::Encrypted), Access().notify(Access::Encrypted).read());
    QVERIFY(Access().read() != Access().read(Access::Encrypted));
    QVERIFY(Access().write() != Access().writeWithoutResponse());
    QVERIFY(Access().notify() != Access().indicate());
}

void tst_access::theLaterLevelCounts()
{
    QCOMPARE(Access().read(Access::SecureConnections).read(), Access().read());
}

void tst_access::anAccessStaysAsItIsWhenMoreIsAskedOfIt()
{
    const Access base = Access().read();
    QCOMPARE(base.write().flags(), (QStringList{"read"_qs, "write"_qs}));
    QCOMPARE(base.flags(), QStringList{"read"_qs});
}

void tst_access::aDescriptorReadsAndWritesOnly()
{
    const Access all = Access().read(Access::Encrypted).write().writeWithoutResponse().notify().indicate();
    QCOMPARE(all.ofDescriptor(), Access().read(Access::Encrypted).write());
}

void tst_access::onlyLevelsProtect_data()
{
    QTest::addColumn<Access>("access");
    QTest::addColumn<bool>("isProtected");
    QTest::newRow("nothing") << Access() << false;
    QTest::newRow("open") << Access().read().write().writeWithoutResponse().notify().indicate() << false;
    QTest::newRow("reading") << Access().read(Access::Encrypted) << true;
    QTest::newRow("writing") << Access().read().write(Access::Authenticated) << true;
    QTest::newRow("notifications") << Access().notify(Access::SecureConnections) << true;
    QTest::newRow("indications") << Access().indicate(Access::Encrypted) << true;
}

void tst_access::onlyLevelsProtect()
{
    QFETCH(Access, access);
    QTEST(access.isProtected(), "isProtected");
}

void tst_access::errorsHaveTheirNumbersAndNames_data()
{
    QTest::addColumn<AttError>("error");
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("dbus");
    QTest::addColumn<QString>("text");
    const auto row = [](const AttError& error, int code, const char* dbus, const char* text) {
        QTest::newRow(text) << error << code << QString::fromLatin1(dbus) << QString::fromLatin1(text);
    };
    row(AttError::ReadNotPermitted, 0x02, "NotPermitted ", "Read Not Permitted (0x02)");
    row(AttError::WriteNotPermitted, 0x03, "NotPermitted ", "Write Not Permitted (0x03)");
    row(AttError::RequestNotSupported, 0x06, "NotSupported ", "Request Not Supported (0x06)");
    row(AttError::InvalidOffset, 0x07, "InvalidOffset ", "Invalid Offset (0x07)");
    row(AttError::InsufficientAuthorization, 0x08, "NotAuthorized ", "Insufficient Authorization (0x08)");
    row(AttError::InvalidAttributeValueLength, 0x0d, "InvalidValueLength ",
        "Invalid Attribute Value Length (0x0d)");
    row(AttError::UnlikelyError, 0x0e, "Failed 0x0e", "Unlikely Error (0x0e)");
    row(AttError::ImproperlyConfigured, 0xfd, "ImproperlyConfigured ", "Improperly Configured (0xfd)");
    row(AttError::ProcedureAlreadyInProgress, 0xfe, "InProgress ", "Procedure Already in Progress (0xfe)");
    row(AttError::application(0x80), 0x80, "Failed 0x80", "Application Error (0x80)");
    row(AttError::application(0x9f), 0x9f, "Failed 0x9f", "Application Error (0x9f)");
}

void tst_access::errorsHaveTheirNumbersAndNames()
{
    QFETCH(AttError, error);
    QFETCH(QString, dbus);
    QTEST(int(error.code()), "code");
    QCOMPARE(error.dbusName() + QLatin1Char(' ') + error.dbusText(), "org.bluez.Error."_qs + dbus);
    QTEST(error.text(), "text");
}

void tst_access::otherNumbersAreUnlikely_data()
{
    QTest::addColumn<int>("code");
    for (const int code : {-1, 0, 0x7f, 0xa0, 0xff, 0x180}) {
        QTest::newRow(qPrintable(QString::number(code, 16))) << code;
    }
}

void tst_access::otherNumbersAreUnlikely()
{
    QFETCH(int, code);
    QCOMPARE(AttError::application(code), AttError(AttError::UnlikelyError));
    QCOMPARE(AttError(AttError::Code(code & 0xff)), AttError(AttError::UnlikelyError));
}

void tst_access::centralsAreTheirPaths()
{
    const plim::Central phone("/org/bluez/hci0/dev_00_AA_01_01_00_01"_qs);
    const plim::Central same(phone.path());
    QVERIFY(!phone.isNull());
    QVERIFY(plim::Central().isNull());
    QCOMPARE(phone, same);
    QVERIFY(phone != plim::Central());
    QCOMPARE((QSet<plim::Central>{phone, same, plim::Central()}).size(), 2);
}

QTEST_GUILESS_MAIN(tst_access)
#include "tst_access.moc"
