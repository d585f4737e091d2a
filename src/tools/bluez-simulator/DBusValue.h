#pragma once

#include <QString>
#include <QVariant>

namespace simulator {

/** Looks at values as they arrive from the bus, without knowing their types beforehand. */
namespace DBusValue {

/** The D-Bus signature of a value, empty when it has none. */
QString signature(const QVariant& value);

/** A value as a person reads it: strings in quotes, byte arrays in hexadecimal, containers in brackets. */
QString text(const QVariant& value);

/** The string-to-anything map (a{sv}) in a value; empty when the value is something else. */
QVariantMap variantMap(const QVariant& value);

} // namespace DBusValue

} // namespace simulator
