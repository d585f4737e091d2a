#pragma once

#include "PlimDBusExport.h"

#include <QByteArray>
#include <QObject>
#include <QVariant>

/**
 * A property that an adaptor reads from its parent by name, without a search while the parents are of one
 * class. Belongs to one thread. Internal: not installed.
 */
class PLIM_DBUS_EXPORT ParentProperty
{
public:
    /** @param name  text that stays where it is */
    explicit ParentProperty(const char* name) : m_name(name) {}

    /** The parent's value, converted if it is of another type; a default value if that cannot be done. */
    template <typename Value>
    Value read(QObject* parent)
    {
        if (!isDeclaredAs(qMetaTypeId<Value>(), parent)) {
            return qvariant_cast<Value>(parent->property(m_name));
        }
        Value value{};
        read(parent, &value);
        return value;
    }

private:
    bool isDeclaredAs(int type, const QObject* parent);
    void read(QObject* parent, void* value) const;

    const char* m_name;
    const QMetaObject* m_class = nullptr;
    QByteArray m_className;
    int m_index = -1;
    int m_type = QMetaType::UnknownType;
};
