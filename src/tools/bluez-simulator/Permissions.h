#pragma once

#include "AttCode.h"
#include "Protection.h"

#include <QStringList>
#include <optional>

namespace simulator {

/** What the daemon lets a phone do with an attribute, by the attribute's flags. */
class Permissions
{
public:
    explicit Permissions(const QStringList& flags);

    /** Why a phone with such a link may not do it, or Success. */
    AttCode read(Protection link) const;
    AttCode write(Protection link) const;
    AttCode subscribe(Protection link) const;

private:
    void allow(const QString& what, Protection level);

    // The level that it takes; nothing where no flag allows it.
    std::optional<Protection> m_read;
    std::optional<Protection> m_write;
    std::optional<Protection> m_subscribe;
};

} // namespace simulator
