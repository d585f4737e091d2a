#include "ValueSize.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QStringList>

namespace {

constexpr qint64 perItem = 4;

void subtractItems(qint64& left, const QDBusArgument& container);

QVariant unwrapped(QVariant value)
{
    while (value.userType() == qMetaTypeId<QDBusVariant>()) {
        value = value.value<QDBusVariant>().variant();
    }
    return value;
}

qint64 sizeOfText(const QString& text)
{
    return text.toUtf8().size();
}

qint64 sizeOfTexts(const QStringList& texts)
{
    qint64 size = 0;
    for (const QString& text : texts) {
        size += sizeOfText(text) + perItem;
    }
    return size;
}

/** Subtracts the size of a value that is not a QDBusVariant from what is left. */
void subtract(qint64& left, const QVariant& value)
{
    const int type = value.userType();
    if (type == qMetaTypeId<QDBusArgument>()) {
        subtractItems(left, value.value<QDBusArgument>());
    } else if (type == QMetaType::QStringList) {
        left -= sizeOfTexts(value.toStringList());
    } else if (type == QMetaType::QByteArray) {
        left -= value.toByteArray().size();
    } else if (type == QMetaType::QString) {
        left -= sizeOfText(value.toString());
    } else if (type == qMetaTypeId<QDBusObjectPath>()) {
        left -= sizeOfText(value.value<QDBusObjectPath>().path());
    } else if (type == qMetaTypeId<QDBusSignature>()) {
        left -= sizeOfText(value.value<QDBusSignature>().signature());
    } else {
        left -= QMetaType(type).sizeOf();
    }
}

/** Subtracts the size of the next item of a container. */
void subtractItem(qint64& left, const QDBusArgument& container)
{
    const QVariant item = unwrapped(container.asVariant());
    left -= perItem;
    if (item.userType() == qMetaTypeId<QDBusUnixFileDescriptor>()) {
        left = -1;
    } else {
        subtract(left, item);
    }
}

/** Subtracts the sizes of a container's items, until nothing is left. */
void subtractItems(qint64& left, const QDBusArgument& container)
{
    const auto isMore = [&] { return left >= 0 && !container.atEnd(); };
    switch (container.currentType()) {
    case QDBusArgument::ArrayType:
        for (container.beginArray(); isMore();) {
            subtractItem(left, container);
        }
        container.endArray();
        break;
    case QDBusArgument::StructureType:
        for (container.beginStructure(); isMore();) {
            subtractItem(left, container);
        }
        container.endStructure();
        break;
    case QDBusArgument::MapType:
        for (container.beginMap(); isMore();) {
            container.beginMapEntry();
            subtractItem(left, container);
            subtractItem(left, container);
            container.endMapEntry();
        }
        container.endMap();
        break;
    default:
        break;
    }
}

} // namespace

bool ValueSize::isWithin(int bytes, const QVariant& value)
{
    qint64 left = bytes;
    subtract(left, unwrapped(value));
    return left >= 0;
}
