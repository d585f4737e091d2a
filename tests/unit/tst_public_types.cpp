#include "BleDBusTypes.h"
#include "GattApplication.h"
#include "Literals.h"
#include "ObjectManagerAdaptor.h"
#include "PropertiesAdaptor.h"
#include "QtVersion.h"

#include <QDBusMetaType>
#include <QtTest>

#include <type_traits>

// What the compiler can hold of the public interface.

static_assert(std::is_same_v<DBusAdvData, QMap<unsigned char, QByteArray>>);
static_assert(std::is_same_v<DBusManufacturerData, QMap<unsigned short, QByteArray>>);
static_assert(std::is_same_v<DBusInterfaceList, QMap<QString, QMap<QString, QVariant>>>);
static_assert(
    std::is_same_v<DBusManagedObjectList, QMap<QDBusObjectPath, QMap<QString, QMap<QString, QVariant>>>>);

// OR-ed and foreign values must be representable, so the width is fixed.
static_assert(std::is_same_v<std::underlying_type_t<GattCharacteristic::Option>, int>);
static_assert(std::is_same_v<std::underlying_type_t<GattDescriptor::Option>, int>);
static_assert(sizeof(int) == 4);
static_assert(GattCharacteristic::Read == 0x1 && GattCharacteristic::Write == 0x2 &&
              GattCharacteristic::Notify == 0x4);
static_assert(GattDescriptor::Read == 0x1 && GattDescriptor::Write == 0x2);
static_assert(std::is_same_v<decltype(GattCharacteristic::Read | GattCharacteristic::Write),
                             GattCharacteristic::Option>);
static_assert(std::is_same_v<decltype(GattDescriptor::Read | GattDescriptor::Write), GattDescriptor::Option>);
static_assert((GattCharacteristic::Read | GattCharacteristic::Notify) == 0x5);

template <typename T>
constexpr bool isPlainObject =
    std::is_base_of_v<QObject, T> && !std::is_copy_constructible_v<T> && !std::is_copy_assignable_v<T> &&
    !std::is_move_constructible_v<T> && !std::is_move_assignable_v<T> && std::has_virtual_destructor_v<T> &&
    std::is_nothrow_destructible_v<T>;
static_assert(isPlainObject<GattApplication>);
static_assert(isPlainObject<GattService>);
static_assert(isPlainObject<GattCharacteristic>);
static_assert(isPlainObject<GattDescriptor>);
static_assert(isPlainObject<ObjectManagerAdaptor>);
static_assert(isPlainObject<PropertiesAdaptor>);

static_assert(std::is_constructible_v<GattApplication, QObject*, const QString&, const QString&>);
static_assert(!std::is_default_constructible_v<GattApplication>);
static_assert(std::is_constructible_v<GattService, QObject*, const QString&, bool, const QString&>);
static_assert(std::is_constructible_v<GattCharacteristic, GattService*, const QString&, const QString&,
                                      GattCharacteristic::Option, GattCharacteristic*>);
static_assert(std::is_constructible_v<GattDescriptor, GattCharacteristic*, const QString&, const QString&,
                                      GattDescriptor::Option>);
static_assert(std::is_constructible_v<ObjectManagerAdaptor, QObject*>);
static_assert(std::is_constructible_v<PropertiesAdaptor, QObject*>);

template <auto member, typename Type>
constexpr bool is = std::is_same_v<decltype(member), Type>;

static_assert(is<&GattApplication::dbusPath, QString (GattApplication::*)() const>);
static_assert(is<&GattApplication::services, QList<GattService*> (GattApplication::*)() const>);
static_assert(is<&GattApplication::createService, GattService* (GattApplication::*)(const QString&, bool)>);
static_assert(is<&GattApplication::applicationChanged, void (GattApplication::*)(const GattApplication*)>);
static_assert(is<&GattApplication::GetManagedObjects, DBusManagedObjectList (GattApplication::*)()>);

static_assert(is<&GattService::uUID, QString (GattService::*)() const>);
static_assert(is<&GattService::primary, bool (GattService::*)() const>);
static_assert(is<&GattService::dbusPath, QString (GattService::*)() const>);
static_assert(is<&GattService::dbusInterfaceList, DBusInterfaceList (GattService::*)() const>);
static_assert(is<&GattService::characteristics, QList<GattCharacteristic*> (GattService::*)() const>);
static_assert(is<&GattService::createCharacteristic,
                 GattCharacteristic* (GattService::*)(const QString&, GattCharacteristic::Option,
                                                      GattCharacteristic*)>);

using ReadCallback = std::function<QByteArray()>;
static_assert(is<&GattCharacteristic::value, QByteArray (GattCharacteristic::*)() const>);
static_assert(is<&GattCharacteristic::cachedValue, QByteArray (GattCharacteristic::*)() const>);
static_assert(is<&GattCharacteristic::setValue, void (GattCharacteristic::*)(const QByteArray&)>);
static_assert(is<&GattCharacteristic::setReadCallback, void (GattCharacteristic::*)(const ReadCallback&)>);
static_assert(is<&GattCharacteristic::flags, QStringList (GattCharacteristic::*)() const>);
static_assert(is<&GattCharacteristic::uUID, QString (GattCharacteristic::*)() const>);
static_assert(is<&GattCharacteristic::service, QDBusObjectPath (GattCharacteristic::*)() const>);
static_assert(is<&GattCharacteristic::dbusPath, QString (GattCharacteristic::*)() const>);
static_assert(is<&GattCharacteristic::notifying, bool (GattCharacteristic::*)() const>);
static_assert(is<&GattCharacteristic::notifyValueChanged, void (GattCharacteristic::*)()>);
static_assert(is<&GattCharacteristic::dbusInterfaceList, DBusInterfaceList (GattCharacteristic::*)() const>);
static_assert(is<&GattCharacteristic::descriptors, QList<GattDescriptor*> (GattCharacteristic::*)() const>);
static_assert(is<&GattCharacteristic::addDescriptor,
                 GattDescriptor* (GattCharacteristic::*)(const QString&, GattDescriptor::Option)>);

static_assert(is<&GattDescriptor::setReadCallback, void (GattDescriptor::*)(const ReadCallback&)>);
static_assert(is<&GattDescriptor::dbusPath, QString (GattDescriptor::*)() const>);
static_assert(is<&GattDescriptor::dbusInterfaceList, DBusInterfaceList (GattDescriptor::*)() const>);
static_assert(is<&GattDescriptor::characteristic, QDBusObjectPath (GattDescriptor::*)() const>);
static_assert(is<&GattDescriptor::uuid, QString (GattDescriptor::*)() const>);
static_assert(is<&GattDescriptor::value, QByteArray (GattDescriptor::*)() const>);

class tst_public_types : public QObject
{
    Q_OBJECT

private slots:
    void registrationMakesTheTypesKnownByName_data();
    void registrationMakesTheTypesKnownByName();
};

void tst_public_types::registrationMakesTheTypesKnownByName_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QByteArray>("signature");
    QTest::newRow("interfaces") << QByteArray("DBusInterfaceList") << QByteArray("a{sa{sv}}");
    QTest::newRow("objects") << QByteArray("DBusManagedObjectList") << QByteArray("a{oa{sa{sv}}}");
}

void tst_public_types::registrationMakesTheTypesKnownByName()
{
    QFETCH(QByteArray, name);
    registerDBusTypes();
    registerDBusTypes(); // any number of times
    const int type = QtVersion::typeNamed(name);
    QVERIFY(type != QMetaType::UnknownType);
    QTEST(QByteArray(QDBusMetaType::typeToSignature(QtVersion::Type(type))), "signature");
}

QTEST_GUILESS_MAIN(tst_public_types)
#include "tst_public_types.moc"
