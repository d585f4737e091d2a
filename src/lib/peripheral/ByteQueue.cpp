#include "ByteQueue.h"

#include <algorithm>
#include <cstring>

void plim::detail::ByteQueue::clear()
{
    m_bytes.clear();
    m_taken = 0;
}

void plim::detail::ByteQueue::append(const QByteArray& bytes)
{
    // Each byte is moved once on average.
    if (m_taken > 0 && m_taken >= size()) {
        m_bytes.remove(0, int(m_taken));
        m_taken = 0;
    }
    m_bytes.append(bytes);
}

QByteArray plim::detail::ByteQueue::head(qint64 most) const
{
    return m_bytes.mid(int(m_taken), int(std::min(most, size())));
}

qint64 plim::detail::ByteQueue::take(char* to, qint64 most)
{
    const qint64 count = std::min(most, size());
    if (count > 0) {
        std::memcpy(to, m_bytes.constData() + m_taken, size_t(count));
    }
    drop(count);
    return count;
}

void plim::detail::ByteQueue::drop(qint64 most)
{
    m_taken += std::min(most, size());
    if (isEmpty()) {
        m_bytes.resize(0); // keeps its memory, which the next bytes need
        m_taken = 0;
    }
}

qint64 plim::detail::ByteQueue::lineSize() const
{
    const qint64 at = m_bytes.indexOf('\n', int(m_taken));
    return at < 0 ? -1 : at - m_taken + 1;
}
