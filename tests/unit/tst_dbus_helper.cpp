#include "DBusBluez.h"
#include "DBusDetail.h"
#include "DBusHelper.h"
#include "Literals.h"

#include <QDBusAbstractAdaptor>
#include <QDBusSignature>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QtTest>

/** An adaptor with a property that counts how often it is read. */
class CountingAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.example.Counting")
    Q_PROPERTY(QVariant Any READ any)
    Q_PROPERTY(int Count READ count)
    Q_PROPERTY(Kind Kind READ kind)
    Q_PROPERTY(QString Name READ name)
    Q_PROPERTY(QDBusObjectPath Path READ path)

public:
    enum Kind
    {
        First,
        Second
    };
    Q_ENUM(Kind)
    explicit CountingAdaptor(QObject* parent) : QDBusAbstractAdaptor(parent) {}
    int count() { return ++m_count; }
    QVariant any() const { return m_count; }
    Kind kind() const { return Second; }
    QString name() const { return "a name"_qs; }
    QDBusObjectPath path() const { return QDBusObjectPath("/a"_qs); }

private:
    int m_count = 0;
};

/** An object with slots, of which one takes a number and one a text. */
class Answering : public QObject
{
    Q_OBJECT
public slots:
    QString answer(int number) { return "number "_qs + QString::number(number); }
    QString answer(const QString& text) { return "text "_qs + text; }
    void remember() { ++remembered; }

public:
    int remembered = 0;
};

/** Another class with a slot of the same name. */
class OtherwiseAnswering : public QObject
{
    Q_OBJECT
public slots:
    static QString answer(int number) { return "otherwise "_qs + QString::number(number); }
};

QString answerOf(QObject* object, int number)
{
    QString answer;
    DBusDetail::invokeMethod(object, "answer", QReturnArgument<QString>("QString", answer),
                             QArgument<int>("int", number));
    return answer;
}

/** A list in a list in a list, … */
QVariant nested(int depth, QVariant value)
{
    for (int i = 0; i < depth; ++i) {
        value = QVariantList{value};
    }
    return value;
}

class tst_dbus_helper : public QObject
{
    Q_OBJECT

private slots:
    void blueZIsFoundUnderItsNames();
    void theFirstObjectIsTheOneWithTheLeastPath();
    void anAbsentInterfaceIsFoundNowhere();
    void anAdaptorsEntryHoldsItsPropertiesAtThisMoment();
    void whatIsNoAdaptorHasNoEntry();
    void invokeMethodCallsTheSlotOfEachClassAgainAndAgain();
    void invokeMethodTellsSlotsOfOneNameApart();
    void invokeMethodWorksWithoutArgumentsAndResult();
    void invokeMethodSaysWhereThereIsNoSlot();
    void whatCannotTravelIsLeftOut_data();
    void whatCannotTravelIsLeftOut();
    void valuesThatExceedOneMessageAreLeftOut();
};

void tst_dbus_helper::blueZIsFoundUnderItsNames()
{
    QCOMPARE(DBusBluezServiceName(), "org.bluez"_qs);
    QCOMPARE(DBusBluezObjectManagerPath(), "/"_qs);
}

void tst_dbus_helper::theFirstObjectIsTheOneWithTheLeastPath()
{
    const DBusInterfaceList wanted{{"a.Wanted"_qs, {}}, {"b.Other"_qs, {}}};
    const DBusManagedObjectList objects{{QDBusObjectPath("/hci10"_qs), wanted},
                                        {QDBusObjectPath("/hci2"_qs), wanted},
                                        {QDBusObjectPath("/hci1"_qs), {{"b.Other"_qs, {}}}}};
    QCOMPARE(DBusHelper::findFirstObjectPath(objects, "a.Wanted"_qs), "/hci10"_qs);
    QCOMPARE(DBusHelper::findFirstObjectPath(objects, "b.Other"_qs), "/hci1"_qs);
}

void tst_dbus_helper::anAbsentInterfaceIsFoundNowhere()
{
    const DBusManagedObjectList objects{{QDBusObjectPath("/a"_qs), {{"a.Wanted"_qs, {}}}}};
    QCOMPARE(DBusHelper::findFirstObjectPath(objects, "a.wanted"_qs), QString());
    QCOMPARE(DBusHelper::findFirstObjectPath({}, "a.Wanted"_qs), QString());
}

void tst_dbus_helper::anAdaptorsEntryHoldsItsPropertiesAtThisMoment()
{
    QObject parent;
    auto* adaptor = new CountingAdaptor(&parent);
    for (int count = 1; count <= 2; ++count) {
        const DBusInterfaceList list = DBusHelper::generateDBusInterfaceList(adaptor);
        QCOMPARE(list.keys(), QStringList("org.example.Counting"_qs));
        const QVariantMap properties = list.first();
        QCOMPARE(properties.keys(), (QStringList{"Any"_qs, "Count"_qs, "Kind"_qs, "Name"_qs, "Path"_qs}));
        QCOMPARE(properties.value("Any"_qs), QVariant(count - 1)); // read before Count
        QCOMPARE(properties.value("Count"_qs), QVariant(count));
        QCOMPARE(properties.value("Kind"_qs).value<CountingAdaptor::Kind>(), CountingAdaptor::Second);
        QCOMPARE(properties.value("Name"_qs), QVariant("a name"_qs));
        QCOMPARE(properties.value("Path"_qs).value<QDBusObjectPath>().path(), "/a"_qs);
    }
}

void tst_dbus_helper::whatIsNoAdaptorHasNoEntry()
{
    QObject object;
    QVERIFY(DBusHelper::generateDBusInterfaceList(&object).isEmpty());
    QVERIFY(DBusHelper::generateDBusInterfaceList(nullptr).isEmpty());
}

void tst_dbus_helper::invokeMethodCallsTheSlotOfEachClassAgainAndAgain()
{
    Answering one;
    OtherwiseAnswering other;
    for (int number = 1; number <= 2; ++number) {
        QCOMPARE(answerOf(&one, number), "number "_qs + QString::number(number));
        QCOMPARE(answerOf(&other, number), "otherwise "_qs + QString::number(number));
    }
}

void tst_dbus_helper::invokeMethodTellsSlotsOfOneNameApart()
{
    Answering object;
    static const char name[] = "answer";
    QString answer;
    QVERIFY(DBusDetail::invokeMethod(&object, name, QReturnArgument<QString>("QString", answer),
                                     QArgument<int>("int", 3)));
    QCOMPARE(answer, "number 3"_qs);
    QVERIFY(DBusDetail::invokeMethod(&object, name, QReturnArgument<QString>("QString", answer),
                                     QArgument<QString>("QString", "three"_qs)));
    QCOMPARE(answer, "text three"_qs);
}

void tst_dbus_helper::invokeMethodWorksWithoutArgumentsAndResult()
{
    Answering object;
    QVERIFY(DBusDetail::invokeMethod(&object, "remember"));
    QVERIFY(DBusDetail::invokeMethod(&object, "remember"));
    QCOMPARE(object.remembered, 2);
}

void tst_dbus_helper::invokeMethodSaysWhereThereIsNoSlot()
{
    Answering object;
    for (int i = 0; i < 2; ++i) {
        QTest::ignoreMessage(QtWarningMsg, "QMetaObject::invokeMethod: No such method Answering::forget()");
        QVERIFY(!DBusDetail::invokeMethod(&object, "forget"));
    }
    QVERIFY(!DBusDetail::invokeMethod(nullptr, "remember"));
}

void tst_dbus_helper::whatCannotTravelIsLeftOut_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QVariant>("left");
    const QVariant emptyPath = QVariant::fromValue(QDBusObjectPath());
    const QVariant path = QVariant::fromValue(QDBusObjectPath("/a"_qs));
    QTest::newRow("invalid") << QVariant() << QVariant();
    QTest::newRow("text") << QVariant("a"_qs) << QVariant("a"_qs);
    QTest::newRow("path") << path << path;
    QTest::newRow("empty path") << emptyPath << QVariant();
    QTest::newRow("variant of an empty path") << QVariant::fromValue(QDBusVariant(emptyPath)) << QVariant();
    QTest::newRow("empty signature") << QVariant::fromValue(QDBusSignature()) << QVariant();
    QTest::newRow("unknown type") << QVariant::fromValue<QObject*>(nullptr) << QVariant();
    QTest::newRow("map") << QVariant(QVariantMap{{"a"_qs, 1}, {"b"_qs, emptyPath}, {"c"_qs, QVariant()}})
                         << QVariant(QVariantMap{{"a"_qs, 1}});
    QTest::newRow("list") << QVariant(QVariantList{1, emptyPath, 2}) << QVariant(QVariantList{1, 2});
    QTest::newRow("closed file descriptor") << QVariant::fromValue(QDBusUnixFileDescriptor()) << QVariant();
    const QVariant descriptor = QVariant::fromValue(QDBusUnixFileDescriptor(0));
    QTest::newRow("variant of a closed file descriptor")
        << QVariant::fromValue(QDBusVariant(QVariant::fromValue(QDBusUnixFileDescriptor()))) << QVariant();
    QTest::newRow("nested 16 deep") << nested(16, 1) << nested(16, 1);
    QTest::newRow("nested 17 deep") << nested(17, 1) << nested(16, QVariantList());
    const int limit = DBusDetail::maximumLength;
    QTest::newRow("longest bytes") << QVariant(QByteArray(limit, 'a')) << QVariant(QByteArray(limit, 'a'));
    QTest::newRow("too many bytes") << QVariant(QByteArray(limit + 1, 'a')) << QVariant();
    QTest::newRow("too long a text") << QVariant(QString(limit / 3 + 1, QLatin1Char('a'))) << QVariant();
}

void tst_dbus_helper::whatCannotTravelIsLeftOut()
{
    QFETCH(QVariant, value);
    QFETCH(QVariant, left);
    const QVariant actual = DBusDetail::marshallable(value);
    QCOMPARE(actual.userType(), left.userType());
    QCOMPARE(actual, left);
}

void tst_dbus_helper::valuesThatExceedOneMessageAreLeftOut()
{
    const auto holding = [](int size) {
        return DBusInterfaceList{
            {"a.Holder"_qs,
             {{"Other"_qs, QString(100, QLatin1Char('a'))}, {"Value"_qs, QByteArray(size, 'a')}}}};
    };
    const DBusInterfaceList without{{"a.Holder"_qs, {{"Other"_qs, QString(100, QLatin1Char('a'))}}}};
    const int limit = DBusDetail::maximumLength;
    const QDBusObjectPath a("/a"_qs);
    const QDBusObjectPath b("/b"_qs);
    const QDBusObjectPath c("/c"_qs);
    QCOMPARE(DBusDetail::withinOneMessage({{a, holding(limit - 5)}, {b, holding(6)}, {c, holding(5)}}),
             (DBusManagedObjectList{{a, holding(limit - 5)}, {b, without}, {c, holding(5)}}));
}

QTEST_GUILESS_MAIN(tst_dbus_helper)
#include "tst_dbus_helper.moc"
