#include "Protection.h"

#include <QMap>

namespace simulator {

std::optional<Protection> protectionFromText(const QString& text)
{
    static const QMap<QString, Protection> levels{
        {QStringLiteral("open"), Protection::Open},
        {QStringLiteral("encrypted"), Protection::Encrypted},
        {QStringLiteral("authenticated"), Protection::Authenticated},
        {QStringLiteral("secure-connections"), Protection::SecureConnections}};
    const auto found = levels.constFind(text);
    return found == levels.constEnd() ? std::nullopt : std::make_optional(*found);
}

} // namespace simulator
