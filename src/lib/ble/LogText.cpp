#include "LogText.h"

#include "plim.h"

#include <sstream>

QString LogText::list(const QStringList& items)
{
    return QLatin1Char('(') + items.join(QLatin1String(", ")) + QLatin1Char(')');
}

std::string LogText::map(const QVariantMap& entries)
{
    std::ostringstream text;
    text << "QMap(";
    for (auto it = entries.cbegin(); it != entries.cend(); ++it) {
        text << '(' << it.key() << ", " << *it << ')';
    }
    text << ')';
    return text.str();
}
