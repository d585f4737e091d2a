#pragma once

#include "DBusTypes.h"

#include <QByteArray>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>

/**
 * A real central: what a phone does with a peripheral, done with one of the machine's controllers through the
 * daemon's own client interfaces. Whatever fails unexpectedly ends the scene.
 */
class Phone : public QObject
{
    Q_OBJECT

public:
    /** @param adapter  the object path of the phone's controller; peripheral: the Bluetooth address to look
     * for */
    Phone(const QString& adapter, const QString& peripheral);

    /** Scans until the peripheral has been seen, with properties that satisfy the condition. */
    bool discover(const std::function<bool(const QVariantMap&)>& condition = {}, int seconds = 60);
    /** A condition for it: the name is known, which a scan response may carry that comes later than the rest.
     */
    static bool hasName(const QVariantMap& found) { return found.contains("Name"); }
    /** Scans once for so long; whether the peripheral was seen since it was forgotten. */
    bool look(int milliseconds);
    /** Forgets everything about the peripheral. */
    void forget();
    /** What is known about the peripheral. */
    QVariantMap device() const;

    /** Connects and waits until the services are known. */
    void connectDevice();
    void disconnectDevice();
    bool connected() const;
    /** Discovers and connects from scratch. */
    void meet();

    /**
     * The peripheral's objects as a phone sees them, without those that the daemon adds itself: "service UUID
     * primary", "characteristic UUID read,notify SERVICE", "descriptor UUID CHARACTERISTIC".
     */
    QStringList tree() const;
    /** The path, on the phone's side, of the attribute with the UUID; empty if there is none. */
    QString find(const QString& uuid) const;

    /** A read as the daemon does it: long values in several steps. */
    QByteArray read(const QString& uuid, const QVariantMap& options = {});
    /** Begins a read of each and returns at once. */
    QList<QDBusPendingCall> beginReads(const QStringList& uuids);
    void write(const QString& uuid, const QByteArray& value, const QVariantMap& options = {});
    /** The error with which a write ends, empty for none. */
    QString tryWrite(const QString& uuid, const QByteArray& value);
    /** Fetches a long value page by page through its control characteristic. */
    QByteArray readPages(const QString& data, const QString& control);

    void subscribe(const QString& uuid);
    void unsubscribe(const QString& uuid);
    /** The values notified since subscribe(), as the daemon announces them. */
    QList<QByteArray> notified(const QString& uuid) const;

    /** A pipe that gets every single notification, which the daemon's announcements do not. */
    int openNotifications(const QString& uuid);

private slots:
    void on_propertiesChanged(const QString& interface, const QVariantMap& changed,
                              const QStringList& invalidated, const QDBusMessage& message);

private:
    QString devicePath() const;
    QString interfaceOf(const QString& path) const;
    QMap<QString, QString> paths() const;
    QString pathOf(const QString& uuid) const;
    static QString describe(const DBusManagedObjectList& objects, const DBusInterfaceList& object);

    const QString m_adapter;
    const QString m_peripheral;
    QMap<QString, QList<QByteArray>> m_notified;
};

/** A map from the bus, a{qv} or a{sv}, whose values are byte arrays: "ffff=01020304" for each. */
QStringList dataTexts(const QVariant& map);
