#pragma once

#include <QString>

namespace simulator {

/** A UUID as the daemon reads it from a text. */
class BluetoothUuid
{
public:
    /** Reads 4, 6 (with 0x), 8, 10 or 36 characters; anything else is invalid. */
    explicit BluetoothUuid(const QString& text);

    bool isValid() const { return m_size != 0; }

    /** The bytes that it takes in an advertisement: 2, 4 or 16; 0 when invalid. */
    int size() const { return m_size; }

    /** Whether it is this 16-bit UUID, in whatever form it was written. */
    bool is(quint16 uuid) const;

private:
    QString m_hex;
    int m_size = 0;
};

} // namespace simulator
