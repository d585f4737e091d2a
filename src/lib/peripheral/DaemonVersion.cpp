#include "DaemonVersion.h"

#include <QRegularExpression>

QVersionNumber plim::detail::daemonVersion(const QString& modalias)
{
    static const QRegularExpression ofBluez(
        QStringLiteral("^usb:v1D6Bp0246d([0-9A-Fa-f]{2})([0-9A-Fa-f]{2})$"));
    const QRegularExpressionMatch match = ofBluez.match(modalias);
    if (!match.hasMatch()) {
        return {};
    }
    return {match.captured(1).toInt(nullptr, 16), match.captured(2).toInt(nullptr, 16)};
}
