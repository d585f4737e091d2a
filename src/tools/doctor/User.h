#pragma once

#include <QString>

#include <pwd.h>
#include <unistd.h>

namespace doctor {

/** A user's name, or the number if it has none. */
inline QString userName(uint id = ::geteuid())
{
    const passwd* entry = ::getpwuid(id);
    return entry ? QString::fromLocal8Bit(entry->pw_name) : QString::number(id);
}

} // namespace doctor
