#include "Broadcasts.h"

#include <QRegularExpression>

#include <algorithm>

namespace {

/** Seconds at which the device's controller was told to broadcast, negative where it was told to end; by
 * btmon's account, which shortens names. */
QList<double> switches(const QString& monitored)
{
    static const QRegularExpression command(
        "< HCI Command: LE [^\n]*\\(0x08\\|0x00(?:39|3c|0a)\\)[^\n]*\\[hci0\\] ([0-9.]+)\n +([^\n]*)");
    QList<double> times;
    auto match = command.globalMatch(monitored);
    while (match.hasNext()) {
        const QRegularExpressionMatch found = match.next();
        const bool isOn = found.captured(2).contains("Enabled");
        times << (isOn ? found.captured(1).toDouble() : -found.captured(1).toDouble());
    }
    return times;
}

} // namespace

QList<int> Broadcasts::delaysAfterPowerOn(const QString& monitored)
{
    static const QRegularExpression powerOn(
        "@ MGMT Command: Set Powered[^\n]*\\[hci0\\] ([0-9.]+)\n +Powered: Enabled");
    const QList<double> all = switches(monitored);
    QList<int> delays;
    auto match = powerOn.globalMatch(monitored);
    while (match.hasNext()) {
        const double time = match.next().captured(1).toDouble();
        const auto on = std::find_if(all.begin(), all.end(), [&](double each) { return each > time; });
        delays << (on == all.end() ? -1 : int((*on - time) * 1000));
    }
    return delays;
}

Broadcasts::Gaps Broadcasts::gaps(const QString& monitored)
{
    Gaps gaps;
    double offSince = 0;
    for (const double time : switches(monitored)) {
        if (time < 0 && offSince == 0) {
            offSince = -time;
        } else if (time > 0 && offSince != 0) {
            const double milliseconds = (time - offSince) * 1000;
            gaps.longestMs = std::max(gaps.longestMs, int(milliseconds + 0.5));
            gaps.totalMs += milliseconds;
            ++gaps.count;
            offSince = 0;
        }
    }
    return gaps;
}

QList<Broadcasts::PowerOn> Broadcasts::powerOns(const QString& monitored)
{
    static const QRegularExpression command(
        "@ MGMT Command: [^\n]*\\(0x([0-9a-f]{4})\\)[^\n]*\\[hci0\\] ([0-9.]+)\n +([^\n]*)");
    const QString setPowered = "0005";
    const QString removeAdvertising = "003f";
    const QStringList addAdvertising{"003e", "0055"}; // the whole of it, or the second half
    QList<PowerOn> all;
    double since = 0;
    auto match = command.globalMatch(monitored);
    while (match.hasNext()) {
        const QRegularExpressionMatch found = match.next();
        const QString code = found.captured(1);
        const double time = found.captured(2).toDouble() * 1000;
        if (code == setPowered && found.captured(3).contains("Enabled")) {
            all << PowerOn();
            since = time;
        } else if (all.isEmpty()) {
            continue;
        } else if (code == removeAdvertising && all.last().untilAsked < 0) {
            all.last().untilAsked = time - since;
            since = time;
        } else if (addAdvertising.contains(code) && all.last().untilAsked >= 0 &&
                   all.last().registering < 0) {
            all.last().registering = time - since;
        }
    }
    return all;
}
