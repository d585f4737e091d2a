#include "Faults.h"

#include <QRegularExpression>
#include <limits>

namespace simulator {

namespace {

bool isErrorName(const QString& name)
{
    static const QRegularExpression pattern(QStringLiteral("^[A-Za-z_]\\w*(\\.[A-Za-z_]\\w*)+$"));
    return name.size() <= 255 && pattern.match(name).hasMatch();
}

} // namespace

QString Faults::set(const QString& member, const QString& mode, const QString& errorName,
                    const QString& errorMessage, uint delayMs)
{
    static const QMap<QString, Answer::Mode> modes{{QStringLiteral("normal"), Answer::Normal},
                                                   {QStringLiteral("error"), Answer::Error},
                                                   {QStringLiteral("late"), Answer::Late},
                                                   {QStringLiteral("never"), Answer::Never}};
    const auto found = modes.constFind(mode);
    if (found == modes.constEnd()) {
        return QStringLiteral("\"%1\" is not one of the modes normal, error, late, never").arg(mode);
    }
    if (*found == Answer::Error && !isErrorName(errorName)) {
        return QStringLiteral("\"%1\" is not a D-Bus error name").arg(errorName);
    }
    if (delayMs > uint(std::numeric_limits<int>::max())) {
        return QStringLiteral("A delay of %1 ms is too long").arg(delayMs);
    }
    m_answers[member] = Answer{*found, errorName, errorMessage, *found == Answer::Normal ? 0 : int(delayMs)};
    return QString();
}

} // namespace simulator
