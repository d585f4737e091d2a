#include "GattApplication.h"
#include "GattCharacteristic1Adaptor.h"
#include "GattDescriptor1Adaptor.h"
#include "GattService1Adaptor.h"
#include "Literals.h"
#include "ObjectManagerAdaptor.h"
#include "PropertiesAdaptor.h"

#include <QtTest>

namespace {

QString methodText(const QMetaMethod& method)
{
    static const char* const kinds[] = {"method", "signal", "slot", "constructor"};
    static const char* const access[] = {"private", "protected", "public"};
    QStringList parameters;
    for (int i = 0; i < method.parameterCount(); ++i) {
        const QByteArray type = method.parameterTypes().at(i);
        const QByteArray name = method.parameterNames().at(i);
        parameters << QString::fromLatin1(name.isEmpty() ? type : type + ' ' + name);
    }
    return "%1 %2 %3 %4(%5)"_qs.arg(
        QLatin1String(access[method.access()]), QLatin1String(kinds[method.methodType()]),
        QLatin1String(method.typeName()), QLatin1String(method.name()), parameters.join(", "_qs));
}

QString propertyText(const QMetaProperty& property)
{
    QString text = "%1 %2"_qs.arg(QLatin1String(property.typeName()), QLatin1String(property.name()));
    const QPair<bool, const char*> traits[] = {
        {property.isReadable(), " read"},     {property.isWritable(), " write"},
        {property.isResettable(), " reset"},  {property.hasNotifySignal(), " notify"},
        {property.isConstant(), " constant"}, {property.isFinal(), " final"}};
    for (const auto& trait : traits) {
        text += trait.first ? QLatin1String(trait.second) : QLatin1String();
    }
    return text;
}

/** Everything that the class itself declares, in the order of its meta-object. */
QStringList declared(const QMetaObject& metaObject)
{
    QStringList texts;
    for (int i = metaObject.methodOffset(); i < metaObject.methodCount(); ++i) {
        texts << methodText(metaObject.method(i));
    }
    for (int i = metaObject.propertyOffset(); i < metaObject.propertyCount(); ++i) {
        texts << propertyText(metaObject.property(i));
    }
    return texts;
}

struct Declaration
{
    const char* name;
    const QMetaObject* metaObject;
    const QMetaObject* base;
    QStringList members;
};

QVector<Declaration> objects()
{
    return {
        {"GattApplication",
         &GattApplication::staticMetaObject,
         &QObject::staticMetaObject,
         {"public signal void applicationChanged(const GattApplication* app)"_qs,
          "public slot DBusManagedObjectList GetManagedObjects()"_qs,
          "private slot void on_handlesChanged()"_qs,
          "private slot void on_serviceDeleted(QObject* obj)"_qs}},
        {"GattService",
         &GattService::staticMetaObject,
         &QObject::staticMetaObject,
         {"public signal void handlesChanged()"_qs,
          "private slot void on_characteristicDeleted(QObject* obj)"_qs, "bool Primary read"_qs,
          "QString UUID read"_qs}},
        {"GattCharacteristic",
         &GattCharacteristic::staticMetaObject,
         &QObject::staticMetaObject,
         {"public signal void valueChanged()"_qs, "public signal void handlesChanged()"_qs,
          "public signal void notifyStateChanged(bool notifying)"_qs,
          "public signal void PropertiesChanged(QString interface, QVariantMap changedProperties, "
          "QStringList invalidatedProperties)"_qs,
          "public slot QByteArray ReadValue(QVariantMap options)"_qs, "public slot void StartNotify()"_qs,
          "public slot void StopNotify()"_qs, "public slot void Confirm()"_qs,
          "public slot void WriteValue(QByteArray value, QVariantMap options)"_qs,
          "public slot QDBusVariant Get(QString interface, QString name)"_qs,
          "public slot QVariantMap GetAll(QString interface)"_qs,
          "public slot void Set(QString interface, QString name, QDBusVariant value)"_qs,
          "private slot void on_control_valueChanged()"_qs,
          "private slot void on_descriptorDeleted(QObject* obj)"_qs, "QStringList Flags read"_qs,
          "bool Notifying read"_qs, "QDBusObjectPath Service read"_qs, "QString UUID read"_qs,
          "QByteArray Value read"_qs}},
        {"GattDescriptor",
         &GattDescriptor::staticMetaObject,
         &QObject::staticMetaObject,
         {"public signal void valueChanged()"_qs, "public slot QByteArray ReadValue(QVariantMap flags)"_qs,
          "public slot void WriteValue(QByteArray value, QVariantMap flags)"_qs,
          "QDBusObjectPath Characteristic read"_qs, "QStringList Flags read"_qs, "QString UUID read"_qs,
          "QByteArray Value read"_qs}},
    };
}

QVector<Declaration> adaptors()
{
    const QMetaObject* adaptor = &QDBusAbstractAdaptor::staticMetaObject;
    return {
        {"GattService1Adaptor",
         &GattService1Adaptor::staticMetaObject,
         adaptor,
         {"bool Primary read"_qs, "QString UUID read"_qs}},
        {"GattCharacteristic1Adaptor",
         &GattCharacteristic1Adaptor::staticMetaObject,
         adaptor,
         {"public slot void Confirm()"_qs, "public slot QByteArray ReadValue(QVariantMap options)"_qs,
          "public slot void StartNotify()"_qs, "public slot void StopNotify()"_qs,
          "public slot void WriteValue(QByteArray value, QVariantMap options)"_qs,
          "QStringList Flags read"_qs, "bool Notifying read"_qs, "QDBusObjectPath Service read"_qs,
          "QString UUID read"_qs, "QByteArray Value read"_qs}},
        {"GattDescriptor1Adaptor",
         &GattDescriptor1Adaptor::staticMetaObject,
         adaptor,
         {"public slot QByteArray ReadValue(QVariantMap flags)"_qs,
          "public slot void WriteValue(QByteArray value, QVariantMap flags)"_qs,
          "QDBusObjectPath Characteristic read"_qs, "QStringList Flags read"_qs, "QString UUID read"_qs,
          "QByteArray Value read"_qs}},
    };
}

} // namespace

Q_DECLARE_METATYPE(const QMetaObject*)

class tst_gatt_metaobject : public QObject
{
    Q_OBJECT

private slots:
    void classesDeclareTheirMembersInOrder_data();
    void classesDeclareTheirMembersInOrder();
    void adaptorsNameTheirInterface_data();
    void adaptorsNameTheirInterface();
    void adaptorsNeverLetACallerGoWithoutAReply();
    void managedObjectsAreAnsweredWithTheNamedType();
    void propertiesChangedCanBeConnectedByItsSignature();
};

void tst_gatt_metaobject::classesDeclareTheirMembersInOrder_data()
{
    QTest::addColumn<const QMetaObject*>("metaObject");
    QTest::addColumn<const QMetaObject*>("base");
    QTest::addColumn<QStringList>("members");
    for (const Declaration& declaration : objects() + adaptors()) {
        QTest::newRow(declaration.name) << declaration.metaObject << declaration.base << declaration.members;
    }
}

void tst_gatt_metaobject::classesDeclareTheirMembersInOrder()
{
    QFETCH(const QMetaObject*, metaObject);
    QFETCH(const QMetaObject*, base);
    QFETCH(QStringList, members);
    QCOMPARE(metaObject->superClass(), base);
    // A line each, so that a failure shows which member it is.
    const QStringList actual = declared(*metaObject);
    for (int i = 0; i < qMin(actual.size(), members.size()); ++i) {
        QCOMPARE(actual.at(i), members.at(i));
    }
    QCOMPARE(actual.size(), members.size());
}

void tst_gatt_metaobject::adaptorsNameTheirInterface_data()
{
    QTest::addColumn<const QMetaObject*>("metaObject");
    QTest::addColumn<QByteArray>("name");
    QTest::newRow("service") << &GattService1Adaptor::staticMetaObject
                             << QByteArray("org.bluez.GattService1");
    QTest::newRow("characteristic") << &GattCharacteristic1Adaptor::staticMetaObject
                                    << QByteArray("org.bluez.GattCharacteristic1");
    QTest::newRow("descriptor") << &GattDescriptor1Adaptor::staticMetaObject
                                << QByteArray("org.bluez.GattDescriptor1");
    QTest::newRow("objects") << &ObjectManagerAdaptor::staticMetaObject
                             << QByteArray("org.freedesktop.DBus.ObjectManager");
    QTest::newRow("properties") << &PropertiesAdaptor::staticMetaObject
                                << QByteArray("org.freedesktop.DBus.Properties");
}

void tst_gatt_metaobject::adaptorsNameTheirInterface()
{
    QFETCH(const QMetaObject*, metaObject);
    QCOMPARE(metaObject->classInfoCount(), 2);
    QCOMPARE(metaObject->classInfo(0).name(), "D-Bus Interface");
    QTEST(QByteArray(metaObject->classInfo(0).value()), "name");
    QCOMPARE(metaObject->classInfo(1).name(), "D-Bus Introspection");
}

void tst_gatt_metaobject::adaptorsNeverLetACallerGoWithoutAReply()
{
    for (const Declaration& declaration : adaptors()) {
        for (int i = declaration.metaObject->methodOffset(); i < declaration.metaObject->methodCount(); ++i) {
            QCOMPARE(declaration.metaObject->method(i).tag(), "");
        }
    }
}

void tst_gatt_metaobject::managedObjectsAreAnsweredWithTheNamedType()
{
    registerDBusTypes();
    const QMetaObject& metaObject = GattApplication::staticMetaObject;
    const QMetaMethod method = metaObject.method(metaObject.indexOfSlot("GetManagedObjects()"));
    QCOMPARE(method.returnType(), qMetaTypeId<DBusManagedObjectList>());
}

void tst_gatt_metaobject::propertiesChangedCanBeConnectedByItsSignature()
{
    const QByteArray signature = "PropertiesChanged(QString,QVariantMap,QStringList)";
    QVERIFY(GattCharacteristic::staticMetaObject.indexOfSignal(signature) >= 0);
    const QMetaObject& adaptor = PropertiesAdaptor::staticMetaObject;
    QCOMPARE(
        methodText(adaptor.method(adaptor.indexOfSignal(signature))),
        "public signal void PropertiesChanged(QString interface, QVariantMap changedProperties, QStringList "
        "invalidatedProperties)"_qs);
}

QTEST_GUILESS_MAIN(tst_gatt_metaobject)
#include "tst_gatt_metaobject.moc"
