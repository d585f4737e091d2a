#pragma once

#include <QString>

/** "text"_qs is a QString; tests are full of them. */
inline QString operator""_qs(const char* text, std::size_t size)
{
    return QString::fromUtf8(text, int(size));
}
