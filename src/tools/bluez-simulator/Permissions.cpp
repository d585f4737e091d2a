#include "Permissions.h"

#include <algorithm>
#include <iterator>

namespace simulator {

namespace {

struct Prefix
{
    const char* text;
    Protection level;
};

// The longer one first.
constexpr Prefix prefixes[] = {{"encrypt-authenticated-", Protection::Authenticated},
                               {"encrypt-", Protection::Encrypted},
                               {"secure-", Protection::SecureConnections},
                               {"", Protection::Open}};

AttCode judge(Protection needed, Protection link)
{
    if (link >= needed) {
        return AttCode::Success;
    }
    return needed == Protection::Encrypted ? AttCode::InsufficientEncryption
                                           : AttCode::InsufficientAuthentication;
}

} // namespace

Permissions::Permissions(const QStringList& flags)
{
    for (const QString& flag : flags) {
        const Prefix& prefix =
            *std::find_if(std::begin(prefixes), std::end(prefixes), [&flag](const Prefix& candidate) {
                return flag.startsWith(QLatin1String(candidate.text));
            });
        allow(flag.mid(int(qstrlen(prefix.text))), prefix.level);
    }
}

AttCode Permissions::read(Protection link) const
{
    // An attribute that can be neither read nor written by its flags is not protected at all.
    if (!m_read) {
        return m_write ? AttCode::ReadNotPermitted : AttCode::Success;
    }
    return judge(*m_read, link);
}

AttCode Permissions::write(Protection link) const
{
    if (!m_write) {
        return m_read ? AttCode::WriteNotPermitted : AttCode::Success;
    }
    return judge(*m_write, link);
}

AttCode Permissions::subscribe(Protection link) const
{
    return m_subscribe ? judge(*m_subscribe, link) : AttCode::AttributeNotFound;
}

void Permissions::allow(const QString& what, Protection level)
{
    const auto raise = [level](std::optional<Protection>& needed) {
        needed = std::max(needed.value_or(Protection::Open), level);
    };
    if (what == QLatin1String("read")) {
        raise(m_read);
    } else if (what == QLatin1String("notify") || what == QLatin1String("indicate")) {
        raise(m_subscribe);
    } else if (what.contains(QLatin1String("write"))) {
        raise(m_write);
    }
}

} // namespace simulator
