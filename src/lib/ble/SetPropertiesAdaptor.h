#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusError>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QStringList>
#include <QVariantMap>

/**
 * Serves org.freedesktop.DBus.Properties for an advertisement of which the bus sees only the properties that
 * were set. All are read-only; the others count as unknown. Internal: not installed.
 */
class SetPropertiesAdaptor : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.DBus.Properties")
    // Qt describes this interface itself for every object; a second description would make the answer
    // invalid.
    Q_CLASSINFO("D-Bus Introspection", "")
public:
    /**
     * @param parent   the advertisement; it owns this adaptor
     * @param adaptor  the adaptor that holds the properties, which the parent owns too
     */
    SetPropertiesAdaptor(QObject* parent, QDBusAbstractAdaptor* adaptor);

    /** Shows a property from now on. */
    void show(const char* property);

public slots:
    QDBusVariant Get(const QString& interface, const QString& name, const QDBusMessage& message);
    QVariantMap GetAll(const QString& interface, const QDBusMessage& message);
    void Set(const QString& interface, const QString& name, const QDBusVariant& value,
             const QDBusMessage& message);

private:
    bool serves(const QString& interface, const QDBusMessage& message) const;
    QVariantMap properties() const;

    QDBusAbstractAdaptor* m_adaptor;
    QStringList m_shown;
};
