#include "BleFinding.h"

QString BleFinding::text() const
{
    return QStringLiteral("%1: %2: %3. %4.")
        .arg(severity == Error ? QStringLiteral("error") : QStringLiteral("warning"), location, message,
             remedy);
}
