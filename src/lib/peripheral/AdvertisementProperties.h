#pragma once

#include <QDBusAbstractAdaptor>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QString>
#include <QStringList>
#include <QVariantMap>

namespace plim {
namespace detail {

/**
 * Serves org.freedesktop.DBus.Properties for an advertisement in place of the adaptor that its base class
 * made, which still answers for all but the properties that are shown here. Internal: not installed.
 */
class AdvertisementProperties : public QDBusAbstractAdaptor
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.DBus.Properties")
    // Qt describes this interface itself for every object.
    Q_CLASSINFO("D-Bus Introspection", "")

public:
    /** @param advertisement  a GapAdvertisement; it owns this adaptor */
    explicit AdvertisementProperties(QObject* advertisement);

    /** Shows a property of the advertisement that the base class does not show, or hides it again. */
    void setShown(const QString& name, bool shown);

    /** Everything that the bus sees. */
    QVariantMap all();

    /** Sends PropertiesChanged with the present values of these properties. */
    void announce(const QStringList& names);

public slots:
    QDBusVariant Get(const QString& interface, const QString& name, const QDBusMessage& message);
    QVariantMap GetAll(const QString& interface, const QDBusMessage& message);
    void Set(const QString& interface, const QString& name, const QDBusVariant& value,
             const QDBusMessage& message);

signals:
    void PropertiesChanged(const QString& interface, const QVariantMap& changedProperties,
                           const QStringList& invalidatedProperties);

private:
    bool shows(const QString& interface, const QString& name) const;
    QVariant value(const QString& name) const;

    QObject* m_base; ///< the base class's adaptor, reached by name
    QStringList m_shown;
};

} // namespace detail
} // namespace plim
