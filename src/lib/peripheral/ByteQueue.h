#pragma once

#include <QByteArray>

namespace plim {
namespace detail {

/** Bytes that are taken in the order in which they were added. Internal: not installed. */
class ByteQueue
{
public:
    qint64 size() const { return qint64(m_bytes.size()) - m_taken; }
    bool isEmpty() const { return size() == 0; }
    void clear();

    void append(const QByteArray& bytes);
    /** A copy of the first bytes, at most so many. */
    QByteArray head(qint64 most) const;
    /** Moves the first bytes, at most so many, to a place that has room for them. @return how many */
    qint64 take(char* to, qint64 most);
    /** Removes the first bytes, at most so many. */
    void drop(qint64 most);
    /** The length of the first line with its '\n', or -1 if there is no '\n'. */
    qint64 lineSize() const;

private:
    QByteArray m_bytes;
    qint64 m_taken = 0; ///< bytes at the front that are no longer in the queue
};

} // namespace detail
} // namespace plim
