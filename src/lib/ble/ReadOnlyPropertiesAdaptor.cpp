#include "ReadOnlyPropertiesAdaptor.h"

#include "DBusDetail.h"

#include <QMetaProperty>

ReadOnlyPropertiesAdaptor::ReadOnlyPropertiesAdaptor(QObject* parent, QDBusAbstractAdaptor* adaptor)
    : QDBusAbstractAdaptor(parent), m_adaptor(adaptor)
{
}

void ReadOnlyPropertiesAdaptor::show(const QString& property)
{
    Q_ASSERT(m_adaptor->metaObject()->indexOfProperty(property.toLatin1().constData()) >= 0);
    if (!m_shown.contains(property)) {
        m_shown << property;
    }
}

QStringList ReadOnlyPropertiesAdaptor::shown() const
{
    QStringList names = m_shown;
    for (auto alias = m_aliases.cbegin(); alias != m_aliases.cend(); ++alias) {
        if (m_shown.contains(*alias)) {
            names << alias.key();
        }
    }
    return names;
}

void ReadOnlyPropertiesAdaptor::showAll()
{
    const QMetaObject* metaObject = m_adaptor->metaObject();
    for (int i = metaObject->propertyOffset(); i < metaObject->propertyCount(); ++i) {
        show(QString::fromLatin1(metaObject->property(i).name()));
    }
}

void ReadOnlyPropertiesAdaptor::alias(const QString& name, const QString& property)
{
    m_aliases.insert(name, property);
}

QDBusVariant ReadOnlyPropertiesAdaptor::Get(const QString& interface, const QString& name,
                                            const QDBusMessage& message)
{
    const QVariant value = serves(interface) ? property(name) : QVariant();
    if (value.isValid()) {
        return QDBusVariant(value);
    }
    if (serves(interface) && !interface.isEmpty()) {
        DBusDetail::replyUnknownProperty(message, interface, name);
    } else {
        DBusDetail::replyUnknownInterface(message, interface);
    }
    return {};
}

QVariantMap ReadOnlyPropertiesAdaptor::GetAll(const QString& interface, const QDBusMessage& message)
{
    QVariantMap properties;
    if (!serves(interface)) {
        DBusDetail::replyUnknownInterface(message, interface);
        return properties;
    }
    const QStringList names = shown();
    for (const QString& name : names) {
        const QVariant value = property(name);
        if (value.isValid()) {
            properties.insert(name, value);
        }
    }
    return properties;
}

void ReadOnlyPropertiesAdaptor::Set(const QString& interface, const QString& name,
                                    const QDBusVariant& /*value*/, const QDBusMessage& message)
{
    if (!serves(interface)) {
        DBusDetail::replyUnknownInterface(message, interface);
    } else if (!property(name).isValid()) {
        DBusDetail::replyUnknownProperty(message, interface, name);
    } else {
        DBusDetail::replyReadOnlyProperty(message, interface, name);
    }
}

/** Whether the interface is the adaptor's. An empty name means any interface. */
bool ReadOnlyPropertiesAdaptor::serves(const QString& interface) const
{
    return interface.isEmpty() || interface == DBusDetail::interfaceName(m_adaptor);
}

/** Whether a property, or the one that a second name stands for, is shown. */
bool ReadOnlyPropertiesAdaptor::shows(const QString& name) const
{
    return m_shown.contains(m_aliases.value(name, name));
}

/** The value that is visible on the bus; invalid if no property of that name is shown. */
QVariant ReadOnlyPropertiesAdaptor::property(const QString& name) const
{
    const QByteArray original = m_aliases.value(name, name).toUtf8();
    return shows(name) ? DBusDetail::marshallable(m_adaptor->property(original.constData())) : QVariant();
}
