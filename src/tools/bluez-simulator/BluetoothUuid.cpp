#include "BluetoothUuid.h"

#include <QRegularExpression>

namespace simulator {

BluetoothUuid::BluetoothUuid(const QString& text)
{
    static const QRegularExpression longForm(
        QStringLiteral("^[0-9a-fA-F]{8}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{4}-[0-9a-fA-F]{12}$"));
    static const QRegularExpression baseForm(
        QStringLiteral("^0000([0-9a-f]{4})-0000-1000-8000-00805f9b34fb$"));
    static const QRegularExpression shortForm(QStringLiteral("^(?:0x)?([0-9a-f]{4}|[0-9a-f]{8})$"),
                                              QRegularExpression::CaseInsensitiveOption);

    const QString lower = text.toLower();
    if (const auto base = baseForm.match(lower); base.hasMatch()) {
        m_hex = base.captured(1);
        m_size = 2;
    } else if (longForm.match(text).hasMatch()) {
        m_hex = lower;
        m_size = 16;
    } else if (const auto brief = shortForm.match(lower); brief.hasMatch()) {
        m_hex = brief.captured(1);
        m_size = int(m_hex.size()) / 2;
    }
}

bool BluetoothUuid::is(quint16 uuid) const
{
    bool ok = false;
    return m_size != 0 && m_size != 16 && m_hex.toUInt(&ok, 16) == uuid && ok;
}

} // namespace simulator
