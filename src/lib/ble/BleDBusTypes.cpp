#include "BleDBusTypes.h"

#include "plim.h"

#include <QDBusVariant>

#include <ostream>

namespace {

template <typename Key>
void writeBlocks(QDBusArgument& argument, const QMap<Key, QByteArray>& map)
{
    argument.beginMap(qMetaTypeId<Key>(), qMetaTypeId<QDBusVariant>());
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        argument.beginMapEntry();
        argument << it.key() << QDBusVariant(*it);
        argument.endMapEntry();
    }
    argument.endMap();
}

/** Reads a map entry by entry. Each Value from the message is stored as convert() returns it. */
template <typename Value, typename Map, typename Convert>
void readEntries(const QDBusArgument& argument, Map& map, Convert convert)
{
    argument.beginMap();
    while (!argument.atEnd()) {
        typename Map::key_type key{};
        Value value;
        argument.beginMapEntry();
        argument >> key >> value;
        argument.endMapEntry();
        map.insert(key, convert(value));
    }
    argument.endMap();
}

QByteArray toBytes(const QDBusVariant& value)
{
    return value.variant().toByteArray();
}

} // namespace

QDBusArgument& operator<<(QDBusArgument& argument, const QMap<unsigned char, QByteArray>& map)
{
    writeBlocks(argument, map);
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, QMap<unsigned char, QByteArray>& map)
{
    readEntries<QDBusVariant>(argument, map, toBytes);
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const QMap<unsigned short, QByteArray>& map)
{
    writeBlocks(argument, map);
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, QMap<unsigned short, QByteArray>& map)
{
    readEntries<QDBusVariant>(argument, map, toBytes);
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const QMap<QDBusObjectPath, QVariantMap>& map)
{
    argument.beginMap(qMetaTypeId<QDBusObjectPath>(), qMetaTypeId<QVariantMap>());
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        argument.beginMapEntry();
        argument << it.key() << *it;
        argument.endMapEntry();
    }
    argument.endMap();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, QMap<QDBusObjectPath, QVariantMap>& map)
{
    readEntries<QVariantMap>(argument, map, [](const QVariantMap& properties) { return properties; });
    return argument;
}

std::ostream& operator<<(std::ostream& stream, const QDBusObjectPath& path)
{
    return stream << path.path();
}
