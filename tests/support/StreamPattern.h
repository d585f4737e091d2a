#pragma once

#include <QByteArray>
#include <QtEndian>

/** Bytes for a stream: the number of each group of four, so that a byte that is lost, doubled or out of order
 * shows. */
class StreamPattern
{
public:
    /** A part of the endless sequence. */
    static QByteArray bytes(qint64 from, int count)
    {
        QByteArray part;
        part.reserve(count + groupSize);
        for (qint64 group = from / groupSize; part.size() < from % groupSize + count; ++group) {
            const quint32 number = qToBigEndian(quint32(group));
            part.append(reinterpret_cast<const char*>(&number), groupSize);
        }
        return part.mid(int(from % groupSize), count);
    }

    /** Takes the next part of a sequence. */
    void take(const QByteArray& part)
    {
        if (m_firstWrong < 0 && part != bytes(m_count, int(part.size()))) {
            m_firstWrong = m_count;
        }
        m_count += part.size();
    }

    /** How many bytes were taken. */
    qint64 count() const { return m_count; }
    /** Where the first part began that is not as in the sequence, or -1. */
    qint64 firstWrong() const { return m_firstWrong; }

private:
    static constexpr int groupSize = 4;

    qint64 m_count = 0;
    qint64 m_firstWrong = -1;
};
