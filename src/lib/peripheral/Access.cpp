#include "Access.h"

#include <QLatin1String>

namespace {

QLatin1String prefix(plim::Access::Level level)
{
    switch (level) {
    case plim::Access::Open:
        break;
    case plim::Access::Encrypted:
        return QLatin1String("encrypt-");
    case plim::Access::Authenticated:
        return QLatin1String("encrypt-authenticated-");
    case plim::Access::SecureConnections:
        return QLatin1String("secure-");
    }
    return QLatin1String("");
}

void append(QStringList& flags, const std::optional<plim::Access::Level>& level, const char* what)
{
    if (level) {
        flags << prefix(*level) + QLatin1String(what);
    }
}

} // namespace

plim::Access plim::Access::read(Level level) const
{
    Access more = *this;
    more.m_read = level;
    return more;
}

plim::Access plim::Access::write(Level level) const
{
    Access more = *this;
    more.m_write = level;
    return more;
}

plim::Access plim::Access::writeWithoutResponse() const
{
    Access more = *this;
    more.m_writeWithoutResponse = true;
    return more;
}

plim::Access plim::Access::notify(Level level) const
{
    Access more = *this;
    more.m_notify = level;
    return more;
}

plim::Access plim::Access::indicate(Level level) const
{
    Access more = *this;
    more.m_indicate = level;
    return more;
}

bool plim::Access::isProtected() const
{
    return m_read.value_or(Open) != Open || m_write.value_or(Open) != Open ||
           m_notify.value_or(Open) != Open || m_indicate.value_or(Open) != Open;
}

plim::Access plim::Access::ofDescriptor() const
{
    Access less;
    less.m_read = m_read;
    less.m_write = m_write;
    return less;
}

QStringList plim::Access::flags() const
{
    QStringList flags;
    append(flags, m_read, "read");
    append(flags, m_write, "write");
    if (m_writeWithoutResponse) {
        flags << QStringLiteral("write-without-response");
    }
    append(flags, m_notify, "notify");
    append(flags, m_indicate, "indicate");
    return flags;
}

QString plim::Access::text() const
{
    const QStringList all = flags();
    return all.isEmpty() ? QStringLiteral("nothing") : all.join(QLatin1String(", "));
}
