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
 * QDBusVariant, GetAll(QString) returning a QVariantMap, and Set(QString, QString, QDBusVariant). Where the
 * parent's Get gives nothing that D-Bus can carry, the caller gets the error UnknownInterface or
 * UnknownProperty.
 *
 * A Set that could fill the memory is answered like any other, but not forwarded, with a line at WARN: one
 * that would give the parent a dynamic property with a name or a value of more than 4096 bytes, with file
 * descriptors inside a container, or as its 65th. Of a value its strings count in UTF-8, all else as it is
 * stored, and each item of a container 4 bytes more.
 *
 * Emitting PropertiesChanged sends the signal from each path at which the parent is exported. It has to be
 * connected explicitly: nothing is relayed from the parent automatically, or a connected signal would go out
 * twice.
 */
class PLIM_DBUS_EXPORT PropertiesAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.DBus.Properties")
    // Qt describes this interface itself for every object; a second description would make the answer
    // invalid.
    Q_CLASSINFO("D-Bus Introspection", "")
public:
    /** @param parent  the object to answer for; it owns the adaptor and is exported after the adaptor was
     * made */
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
