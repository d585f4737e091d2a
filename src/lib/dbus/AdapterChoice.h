#pragma once

#include <QString>

/** How a program chooses one of several Bluetooth adapters. Internal: not installed. */
namespace AdapterChoice {

/**
 * Whether an adapter is the chosen one.
 * @param choice   its name ("hci1"), or its address in upper or lower case ("AA:BB:CC:DD:EE:FF"), which stays
 *                 the same when adapters are numbered anew; empty for any
 * @param path     the path of its object
 * @param address  its address
 */
inline bool isChosen(const QString& choice, const QString& path, const QString& address)
{
    return choice.isEmpty() || path.section(QLatin1Char('/'), -1) == choice ||
           address.compare(choice, Qt::CaseInsensitive) == 0;
}

} // namespace AdapterChoice
