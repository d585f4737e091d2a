#pragma once

#include <QList>
#include <QString>

/** What the device's controller was told to broadcast, and when, by btmon's account. */
namespace Broadcasts {

/** How long nothing was broadcast. */
struct Gaps
{
    int count = 0;
    int longestMs = 0;
    double totalMs = 0;
};
Gaps gaps(const QString& monitored);

/** Milliseconds from each power-on of the device until its controller was told to broadcast, -1 where it was
 * not. */
QList<int> delaysAfterPowerOn(const QString& monitored);

/** A power-on of the device, and the registration of one advertisement that it led to; in milliseconds, -1
 * where they have not come. */
struct PowerOn
{
    double untilAsked = -1;  ///< until the daemon ended the former registration for the program
    double registering = -1; ///< from there until it had read the advertisement and told the kernel
};
QList<PowerOn> powerOns(const QString& monitored);

} // namespace Broadcasts
