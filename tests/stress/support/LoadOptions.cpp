#include "LoadOptions.h"

#include <cstdio>
#include <cstdlib>

namespace {

const QString seedName = QStringLiteral("seed");

} // namespace

LoadOptions::LoadOptions(unsigned seed, const QString& description)
{
    setApplicationDescription(description);
    addHelpOption();
    addOption({seedName, QStringLiteral("Determines all random choices."), QStringLiteral("number"),
               QString::number(seed)});
}

void LoadOptions::addCount(const QString& name, const QString& description, qint64 usual)
{
    addOption({name, description, QStringLiteral("count"), QString::number(usual)});
}

qint64 LoadOptions::count(const QString& name) const
{
    return number<qint64>(name, 1);
}

unsigned LoadOptions::seed() const
{
    return number<unsigned>(seedName, 0);
}

template <typename Number>
Number LoadOptions::number(const QString& name, Number least) const
{
    bool isNumber = false;
    const qint64 given = value(name).toLongLong(&isNumber);
    const auto result = Number(given);
    if (!isNumber || qint64(result) != given || result < least) {
        std::fprintf(stderr, "--%s: \"%s\" is not a number that can be used\n", qPrintable(name),
                     qPrintable(value(name)));
        std::exit(2);
    }
    return result;
}
