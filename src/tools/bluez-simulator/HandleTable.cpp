#include "HandleTable.h"

#include "Names.h"

#include <QDBusArgument>
#include <algorithm>

namespace simulator {

namespace {

constexpr int LastHandle = 0xffff;

using Range = HandlePlacement::Range;

bool overlap(const Range& a, const Range& b)
{
    return a.first <= b.last && b.first <= a.last;
}

bool hasSubscriptions(const QStringList& flags)
{
    return std::any_of(flags.begin(), flags.end(), [](const QString& flag) {
        return flag.endsWith(QLatin1String("notify")) || flag.endsWith(QLatin1String("indicate"));
    });
}

/** Whether the daemon adds the descriptor of extended properties. */
bool hasExtendedProperties(const QStringList& flags)
{
    return std::any_of(flags.begin(), flags.end(), [](const QString& flag) {
        return flag.endsWith(QLatin1String("-read")) || flag.endsWith(QLatin1String("-write")) ||
               flag == QLatin1String("writable-auxiliaries");
    });
}

/** Calls a function with the path and the properties of each object below a parent. */
template <typename Function>
void forEachChild(const DBusManagedObjectList& objects, const QString& interface,
                  const QString& parentProperty, const QString& parent, Function&& function)
{
    for (auto object = objects.begin(); object != objects.end(); ++object) {
        const QVariantMap properties = object->value(interface);
        if (properties.value(parentProperty).value<QDBusObjectPath>().path() == parent) {
            function(object.key().path(), properties);
        }
    }
}

/** Numbers a service and what is below it, from a handle on; returns the last one. */
int number(const DBusManagedObjectList& objects, const QString& service, int handle,
           QMap<QString, quint16>& handles)
{
    handles[service] = quint16(handle);
    const QVariant includes =
        objects.value(QDBusObjectPath(service)).value(Names::GattService).value(QStringLiteral("Includes"));
    handle += int(qdbus_cast<QList<QDBusObjectPath>>(includes).size());
    forEachChild(objects, Names::GattCharacteristic, QStringLiteral("Service"), service,
                 [&](const QString& path, const QVariantMap& properties) {
                     const QStringList flags = properties.value(QStringLiteral("Flags")).toStringList();
                     handle += 2; // the declaration and the value
                     handles[path] = quint16(handle);
                     handle += int(hasSubscriptions(flags)) + int(hasExtendedProperties(flags));
                     forEachChild(objects, Names::GattDescriptor, QStringLiteral("Characteristic"), path,
                                  [&](const QString& descriptor, const QVariantMap&) {
                                      handles[descriptor] = quint16(++handle);
                                  });
                 });
    return handle;
}

} // namespace

std::optional<HandlePlacement> HandleTable::place(const DBusManagedObjectList& objects) const
{
    HandlePlacement placement;
    QList<Range> taken = m_taken;
    int next = m_next;
    for (auto object = objects.begin(); object != objects.end(); ++object) {
        if (!object->contains(Names::GattService)) {
            continue;
        }
        const int wanted = object->value(Names::GattService).value(QStringLiteral("Handle")).value<quint16>();
        Range range;
        range.first = wanted == 0 ? next : wanted;
        range.last = number(objects, object.key().path(), range.first, placement.handles);
        const bool isFree = std::none_of(taken.begin(), taken.end(),
                                         [&range](const Range& other) { return overlap(range, other); });
        if (!isFree || range.last > LastHandle) {
            return std::nullopt;
        }
        placement.services += range;
        taken += range;
        next = std::max(next, range.last + 1);
    }
    return placement;
}

void HandleTable::take(const HandlePlacement& placement)
{
    for (const Range& range : placement.services) {
        m_taken += range;
        m_next = std::max(m_next, range.last + 1);
    }
}

void HandleTable::release(const HandlePlacement& placement)
{
    for (const Range& range : placement.services) {
        m_taken.erase(std::remove_if(m_taken.begin(), m_taken.end(),
                                     [&range](const Range& other) { return overlap(range, other); }),
                      m_taken.end());
    }
}

} // namespace simulator
