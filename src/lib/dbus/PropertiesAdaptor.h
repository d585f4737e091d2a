#pragma once

#include "PlimDBusExport.h"

#include <QDBusAbstractAdaptor>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QStringList>
#include <QVariantMap>

/**
 * Serves org.freedesktop.DBus.Properties wherever its parent is exported with its adaptors, instead of Qt's
 * own answers for that object.
 *
 * Get, GetAll and Set are forwarded by name to the parent's slots Get(QString, QString) returning a
 * QDBusVariant, GetAll(QString) returning a QVariantMap, and Set(QString, QString, QDBusVariant). If the
 * parent's Get returns nothing that D-Bus can carry, the caller gets the error UnknownInterface or
 * UnknownProperty.
 *
 * A Set of a property that the parent's class does not declare makes a dynamic property, which stays in
 * memory. Therefore such a Set is answered like any other, but not forwarded, in these cases: the name or the
 * value takes more than 4096 bytes, the value has file descriptors inside a container, or the parent has 64
 * dynamic properties already. A line is then logged at WARN. Strings count in UTF-8, everything else as it is
 * stored, and each item of a container 4 bytes more.
 *
 * Emitting PropertiesChanged sends the signal from each path at which the parent is exported. A signal of the
 * parent has to be connected to it explicitly. It is not relayed automatically, since a signal that is also
 * connected would be sent twice.
 */
class PLIM_DBUS_EXPORT PropertiesAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.DBus.Properties")
    // Qt describes this interface itself for every object; a second description would make the answer
    // invalid.
    Q_CLASSINFO("D-Bus Introspection", "")
public:
    /** @param parent  the object that the adaptor answers for, and its owner; export it after the adaptor was
     * created */
    explicit PropertiesAdaptor(QObject* parent);

public slots:
    /** The interface's Get, answered by the parent's slot. */
    QDBusVariant Get(const QString& interface, const QString& name, const QDBusMessage& message);
    /** GetAll, answered by the parent's slot. */
    QVariantMap GetAll(const QString& interface);
    /** Set, done by the parent's slot. */
    void Set(const QString& interface, const QString& name, const QDBusVariant& value,
             const QDBusMessage& message);

signals:
    /** The signal on the bus, from each path of the parent. */
    void PropertiesChanged(const QString& interface, const QVariantMap& changedProperties,
                           const QStringList& invalidatedProperties);

private:
    bool servesInterface(const QString& interface) const;
};
