#pragma once

#include "BleDBusTypes.h"

#include <QDBusAbstractAdaptor>

// What is as little as an object can be that Qt D-Bus serves: adaptors that answer from a member.

/** org.bluez.GattCharacteristic1. */
class BareCharacteristic : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.bluez.GattCharacteristic1")
    Q_PROPERTY(QStringList Flags MEMBER flags CONSTANT)
    Q_PROPERTY(bool Notifying MEMBER notifying CONSTANT)
    Q_PROPERTY(QDBusObjectPath Service MEMBER service CONSTANT)
    Q_PROPERTY(QString UUID MEMBER uuid CONSTANT)
    Q_PROPERTY(QByteArray Value MEMBER value CONSTANT)
public:
    explicit BareCharacteristic(QObject* parent) : QDBusAbstractAdaptor(parent) {}

    QStringList flags{QStringLiteral("read"), QStringLiteral("write"), QStringLiteral("notify")};
    bool notifying = false;
    QDBusObjectPath service;
    QString uuid;
    QByteArray value;

public slots:
    QByteArray ReadValue(const QVariantMap& /*options*/) { return value; }
    void WriteValue(const QByteArray& bytes, const QVariantMap& /*options*/) { value = bytes; }
    void StartNotify() {}
    void StopNotify() {}
    void Confirm() {}
};

/** The signal of org.freedesktop.DBus.Properties. */
class BareNotifier : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.DBus.Properties")
public:
    explicit BareNotifier(QObject* parent) : QDBusAbstractAdaptor(parent) {}

signals:
    void PropertiesChanged(const QString& interface, const QVariantMap& changed,
                           const QStringList& invalidated);
};

/** org.freedesktop.DBus.ObjectManager with a map that is ready. */
class BareObjectManager : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.DBus.ObjectManager")
public:
    explicit BareObjectManager(QObject* parent) : QDBusAbstractAdaptor(parent) {}

    DBusManagedObjectList objects;

public slots:
    DBusManagedObjectList GetManagedObjects() { return objects; }
};

/** org.bluez.LEAdvertisement1 with as much as a daemon wants to see. */
class BareAdvertisement : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.bluez.LEAdvertisement1")
    Q_PROPERTY(QString Type MEMBER type CONSTANT)
    Q_PROPERTY(QString LocalName MEMBER localName CONSTANT)
public:
    explicit BareAdvertisement(QObject* parent) : QDBusAbstractAdaptor(parent) {}

    QString type = QStringLiteral("peripheral");
    QString localName;

public slots:
    Q_NOREPLY void Release() {}
};
