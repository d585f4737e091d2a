#include "DBusValue.h"

#include "QtVersion.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QDBusVariant>
#include <QStringList>

namespace simulator {

namespace {

QString argumentText(const QDBusArgument& argument);

QString elementTexts(const QDBusArgument& argument)
{
    QStringList texts;
    while (!argument.atEnd()) {
        texts += argumentText(argument);
    }
    return texts.join(QStringLiteral(", "));
}

QString mapText(const QDBusArgument& argument)
{
    QStringList texts;
    argument.beginMap();
    while (!argument.atEnd()) {
        argument.beginMapEntry();
        const QString key = argumentText(argument);
        texts += key + QStringLiteral(": ") + argumentText(argument);
        argument.endMapEntry();
    }
    argument.endMap();
    return QLatin1Char('{') + texts.join(QStringLiteral(", ")) + QLatin1Char('}');
}

QString argumentText(const QDBusArgument& argument)
{
    QString elements;
    switch (argument.currentType()) {
    case QDBusArgument::ArrayType:
        if (argument.currentSignature() == QLatin1String("ay")) {
            return DBusValue::text(argument.asVariant());
        }
        argument.beginArray();
        elements = elementTexts(argument);
        argument.endArray();
        return QLatin1Char('[') + elements + QLatin1Char(']');
    case QDBusArgument::StructureType:
        argument.beginStructure();
        elements = elementTexts(argument);
        argument.endStructure();
        return QLatin1Char('(') + elements + QLatin1Char(')');
    case QDBusArgument::MapType:
        return mapText(argument);
    default:
        return DBusValue::text(argument.asVariant());
    }
}

QString quoted(const QString& string)
{
    return QLatin1Char('"') + string + QLatin1Char('"');
}

} // namespace

QString DBusValue::signature(const QVariant& value)
{
    if (value.userType() == qMetaTypeId<QDBusArgument>()) {
        return value.value<QDBusArgument>().currentSignature();
    }
    return QString::fromLatin1(QDBusMetaType::typeToSignature(QtVersion::Type(value.userType())));
}

QString DBusValue::text(const QVariant& value)
{
    const int type = value.userType();
    if (type == qMetaTypeId<QDBusArgument>()) {
        return argumentText(value.value<QDBusArgument>());
    }
    if (type == qMetaTypeId<QDBusVariant>()) {
        return QLatin1Char('<') + text(value.value<QDBusVariant>().variant()) + QLatin1Char('>');
    }
    if (type == qMetaTypeId<QDBusObjectPath>()) {
        return value.value<QDBusObjectPath>().path();
    }
    if (type == qMetaTypeId<QDBusSignature>()) {
        return quoted(value.value<QDBusSignature>().signature());
    }
    if (type == QMetaType::QByteArray) {
        return QLatin1Char('[') + QString::fromLatin1(value.toByteArray().toHex(' ')) + QLatin1Char(']');
    }
    if (type == QMetaType::QString) {
        return quoted(value.toString());
    }
    if (type == QMetaType::UChar) {
        return QString::number(value.toUInt());
    }
    if (type == QMetaType::QStringList || type == QMetaType::QVariantList) {
        QStringList texts;
        const QVariantList elements = value.toList();
        for (const QVariant& element : elements) {
            texts += text(element);
        }
        return QLatin1Char('[') + texts.join(QStringLiteral(", ")) + QLatin1Char(']');
    }
    return value.toString();
}

QVariantMap DBusValue::variantMap(const QVariant& value)
{
    return signature(value) == QLatin1String("a{sv}") ? qdbus_cast<QVariantMap>(value) : QVariantMap();
}

} // namespace simulator
