#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QMap>
#include <QStringList>
#include <QVariantMap>

/**
 * Serves org.freedesktop.DBus.Properties for an object with one adaptor, whose properties are read-only. It
 * answers as Qt itself would, but with two differences: only chosen properties are visible on the bus, and
 * what D-Bus cannot carry is left out of their values. Internal: not installed.
 */
class ReadOnlyPropertiesAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.DBus.Properties")
    // Qt describes this interface itself for every object; a second description would make the answer
    // invalid.
    Q_CLASSINFO("D-Bus Introspection", "")
public:
    /**
     * Shows no property at first.
     * @param parent   the object; it owns this adaptor
     * @param adaptor  the adaptor that holds the properties, all of them read-only; the parent owns it too
     */
    ReadOnlyPropertiesAdaptor(QObject* parent, QDBusAbstractAdaptor* adaptor);

    /** Shows a property from now on; the adaptor must have it. */
    void show(const QString& property);

    /** The names of the properties that are shown, second names included. */
    QStringList shown() const;

    /** Shows every property of the adaptor. */
    void showAll();

    /** Gives a property a second name, under which it is visible, too, while it is shown. */
    void alias(const QString& name, const QString& property);

public slots:
    QDBusVariant Get(const QString& interface, const QString& name, const QDBusMessage& message);
    QVariantMap GetAll(const QString& interface, const QDBusMessage& message);
    void Set(const QString& interface, const QString& name, const QDBusVariant& value,
             const QDBusMessage& message);

private:
    bool serves(const QString& interface) const;
    bool shows(const QString& name) const;
    QVariant property(const QString& name) const;

    QDBusAbstractAdaptor* m_adaptor;
    QStringList m_shown;
    QMap<QString, QString> m_aliases; ///< second name to property
};
