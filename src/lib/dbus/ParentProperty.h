#pragma once

#include "PlimDBusExport.h"

#include <QByteArray>
#include <QObject>
#include <QVariant>

/**
 * A property that an adaptor reads from its parent by name. The property is searched again only if the parent
 * is of another class than the last one. For use on one thread. Internal: not installed.
 */
class PLIM_DBUS_EXPORT ParentProperty
{
public:
    /** @param name  a literal: only its address is stored */
    explicit ParentProperty(const char* name) : m_name(name) {}

    /** The parent's value, converted if it has another type; a default value if that is not possible. */
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
