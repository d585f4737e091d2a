#pragma once

#include <QByteArray>
#include <QMetaType>

/** Where the interfaces of Qt 5 and Qt 6 differ for the same purpose. Internal: not installed. */
namespace QtVersion {

#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)

/** What Qt's functions take for a type: QtVersion::Type(value.userType()). */
using Type = QMetaType;

/** The type that is registered under this name, or QMetaType::UnknownType. */
inline int typeNamed(const QByteArray& name)
{
    return QMetaType::fromName(name).id();
}

#else

using Type = int;

inline int typeNamed(const QByteArray& name)
{
    return QMetaType::type(name.constData());
}

#endif

} // namespace QtVersion
