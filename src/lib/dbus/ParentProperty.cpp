#include "ParentProperty.h"

#include <QMetaProperty>

#include <cstring>

/** Whether the parent's class declares the property with this type. */
bool ParentProperty::isDeclaredAs(int type, const QObject* parent)
{
    const QMetaObject* metaObject = parent->metaObject();
    // When a class was unloaded, another one may have got its address.
    if (metaObject != m_class || std::strcmp(m_className.constData(), metaObject->className()) != 0) {
        m_class = metaObject;
        m_className = metaObject->className();
        m_index = metaObject->indexOfProperty(m_name);
        m_type = metaObject->property(m_index).userType();
    }
    return m_index >= 0 && m_type == type;
}

void ParentProperty::read(QObject* parent, void* value) const
{
    QVariant unused;
    int status = -1;
    void* arguments[] = {value, &unused, &status};
    QMetaObject::metacall(parent, QMetaObject::ReadProperty, m_index, arguments);
}
