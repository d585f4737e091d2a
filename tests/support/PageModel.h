#pragma once

#include <QByteArray>

#include <optional>

/**
 * What a read and a write of a value must do, in the plainest arithmetic: byte by byte, on numbers that
 * cannot overflow. Written without a look at the library, to compare it with.
 */
namespace PageModel {

/** The bytes at the positions from start up to start + length, or to the end for a negative length. */
inline QByteArray slice(const QByteArray& value, long long start, long long length)
{
    QByteArray bytes;
    for (int i = 0; i < value.size(); ++i) {
        if (i >= start && (length < 0 || i < start + length)) {
            bytes.append(value.at(i));
        }
    }
    return bytes;
}

/** @param page  the number that the control's text stands for; none where there is no text or it is no number
 */
inline QByteArray readCharacteristic(const QByteArray& value, long long offset, std::optional<long long> page)
{
    if (page && *page >= 0) {
        return slice(value, offset + *page * 512, 512 - offset);
    }
    return slice(value, offset, -1);
}

inline bool callsCallback(long long offset, std::optional<long long> page)
{
    return offset == 0 && (!page || *page <= 0);
}

inline QByteArray writeCharacteristic(const QByteArray& value, long long offset, long long page,
                                      const QByteArray& bytes)
{
    if (page < 0) {
        return value;
    }
    const long long end = offset + page * 512;
    return slice(value, 0, end < 0 ? 0 : end) + bytes;
}

inline QByteArray readDescriptor(const QByteArray& value, long long offset)
{
    return slice(value, offset, 512 - offset);
}

} // namespace PageModel
