#include "BeaconData.h"

#include <QtEndian>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace {

constexpr int namespaceSize = 10;
constexpr int instanceSize = 6;
constexpr int maximumUrlSize = 17;

// The first byte of each frame of Eddystone.
constexpr char uidFrame = 0x00;
constexpr char urlFrame = 0x10;
constexpr char tlmFrame = 0x20;

constexpr qint16 notMeasured = std::numeric_limits<qint16>::min();

template <typename Number>
QByteArray bigEndian(Number number)
{
    QByteArray bytes(int(sizeof number), 0);
    qToBigEndian(number, bytes.data());
    return bytes;
}

QVariantMap eddystone(const QByteArray& frame)
{
    return {{plim::eddystoneService(), frame}};
}

/** A text that the URL frame has a byte for: the index. */
const std::array<QByteArray, 4> schemes{"http://www.", "https://www.", "http://", "https://"};
const std::array<QByteArray, 14> endings{".com/", ".org/", ".edu/", ".net/", ".info/", ".biz/", ".gov/",
                                         ".com",  ".org",  ".edu",  ".net",  ".info",  ".biz",  ".gov"};

/** The first of the texts that stands at this place, or end(). */
template <typename Texts>
auto textAt(const Texts& texts, const QByteArray& url, int at)
{
    return std::find_if(texts.begin(), texts.end(), [&](const QByteArray& text) {
        return url.mid(at, int(text.size())).compare(text, Qt::CaseInsensitive) == 0;
    });
}

/** The encoded address with its scheme; empty where a character cannot be encoded. */
QByteArray encoded(const QByteArray& url)
{
    const auto* const scheme = textAt(schemes, url, 0);
    if (scheme == schemes.end()) {
        return {};
    }
    QByteArray bytes(1, char(scheme - schemes.begin()));
    for (int at = int(scheme->size()); at < url.size();) {
        const auto* const ending = textAt(endings, url, at);
        if (ending != endings.end()) {
            bytes += char(ending - endings.begin());
            at += int(ending->size());
        } else if (url[at] > 0x20 && url[at] < 0x7f) {
            bytes += url[at++];
        } else {
            return {};
        }
    }
    return bytes;
}

/** Degrees as a signed number of 8 bits before the point and 8 behind it. */
qint16 fixedPoint(const std::optional<double>& degrees)
{
    if (!degrees || std::isnan(*degrees)) {
        return notMeasured;
    }
    // The lowest number means that nothing is measured.
    return qint16(std::clamp(std::round(*degrees * 256), notMeasured + 1.0, 32767.0));
}

} // namespace

QString plim::eddystoneService()
{
    return QStringLiteral("feaa");
}

QString plim::batteryService()
{
    return QStringLiteral("180f");
}

GapManufacturerData plim::iBeacon(const QUuid& region, quint16 major, quint16 minor, qint8 measuredPower)
{
    const QByteArray typeAndLength = QByteArrayLiteral("\x02\x15");
    return {{iBeaconCompany,
             typeAndLength + region.toRfc4122() + bigEndian(major) + bigEndian(minor) + char(measuredPower)}};
}

QVariantMap plim::eddystoneUid(qint8 txPower, const QByteArray& space, const QByteArray& instance)
{
    if (space.size() != namespaceSize || instance.size() != instanceSize) {
        return {};
    }
    const QByteArray reserved(2, 0);
    return eddystone(QByteArray(1, uidFrame) + char(txPower) + space + instance + reserved);
}

QVariantMap plim::eddystoneUrl(qint8 txPower, const QString& url)
{
    const QByteArray bytes = encoded(url.toUtf8());
    if (bytes.size() < 2 || bytes.size() > 1 + maximumUrlSize) {
        return {};
    }
    return eddystone(QByteArray(1, urlFrame) + char(txPower) + bytes);
}

QVariantMap plim::eddystoneTlm(const EddystoneTelemetry& telemetry)
{
    const QByteArray version(1, 0);
    return eddystone(QByteArray(1, tlmFrame) + version + bigEndian(telemetry.batteryMillivolts) +
                     bigEndian(fixedPoint(telemetry.temperature)) + bigEndian(telemetry.advertisements) +
                     bigEndian(telemetry.uptimeTenths));
}

QVariantMap plim::batteryServiceData(std::uint8_t percent)
{
    return {{batteryService(), QByteArray(1, char(std::min<int>(percent, 100)))}};
}
