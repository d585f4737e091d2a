#include "ValueSize.h"

#include <QDBusArgument>
#include <QDBusObjectPath>
#include <QDBusSignature>
#include <QDBusUnixFileDescriptor>
#include <QDBusVariant>
#include <QStringList>

namespace {

constexpr qint64 perItem = 4;

void takeItems(qint64& left, const QDBusArgument& container);

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

/** Takes from what is left what a value needs that is no variant. */
void take(qint64& left, const QVariant& value)
{
    const int type = value.userType();
    if (type == qMetaTypeId<QDBusArgument>()) {
        takeItems(left, value.value<QDBusArgument>());
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
        left -= QMetaType::sizeOf(type);
    }
}

/** Takes the next item of a container. */
void takeItem(qint64& left, const QDBusArgument& container)
{
    const QVariant item = unwrapped(container.asVariant());
    left -= perItem;
    if (item.userType() == qMetaTypeId<QDBusUnixFileDescriptor>()) {
        left = -1;
    } else {
        take(left, item);
    }
}

/** Takes the items of a container, up to the one that is too much. */
void takeItems(qint64& left, const QDBusArgument& container)
{
    const auto isMore = [&] { return left >= 0 && !container.atEnd(); };
    switch (container.currentType()) {
    case QDBusArgument::ArrayType:
        for (container.beginArray(); isMore();) {
            takeItem(left, container);
        }
        container.endArray();
        break;
    case QDBusArgument::StructureType:
        for (container.beginStructure(); isMore();) {
            takeItem(left, container);
        }
        container.endStructure();
        break;
    case QDBusArgument::MapType:
        for (container.beginMap(); isMore();) {
            container.beginMapEntry();
            takeItem(left, container);
            takeItem(left, container);
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
    take(left, unwrapped(value));
    return left >= 0;
}
