#include "Preflight.h"

#include <QDBusConnection>
#include <QRegularExpression>

namespace {

/** Reads a text that consists of that many hexadecimal digits and nothing else. */
bool readHex(const QString& text, int digits, uint& number)
{
    bool ok = false;
    // toUInt() alone would also accept signs, blanks and another 0x.
    static const QRegularExpression other(QStringLiteral("[^0-9a-fA-F]"));
    number = text.size() == digits && !text.contains(other) ? text.toUInt(&ok, 16) : 0;
    return ok;
}

/** Whether the text has the groups of digits of the long form. */
bool isLongForm(const QString& text)
{
    static const int groups[] = {8, 4, 4, 4, 12};
    const QStringList parts = text.split(QLatin1Char('-'));
    if (parts.size() != 5) {
        return false;
    }
    uint number = 0;
    for (int i = 0; i < 4; ++i) {
        if (!readHex(parts.at(i), groups[i], number)) {
            return false;
        }
    }
    const QString& node = parts.at(4);
    return readHex(node.left(4), 4, number) && readHex(node.mid(4), groups[4] - 4, number);
}

bool isObjectPath(const QString& path)
{
    static const QRegularExpression form(QStringLiteral("\\A(?:/|(?:/[A-Za-z0-9_]+)+)\\z"));
    return form.match(path).hasMatch();
}

} // namespace

Preflight::Uuid::Uuid(const QString& text)
{
    // A 16-bit UUID of the Bluetooth SIG, in its long form, ends in this.
    const QLatin1String base("-0000-1000-8000-00805f9b34fb");
    const QString digits = text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive) ? text.mid(2) : text;
    if (isLongForm(text)) {
        const bool isAssigned =
            text.startsWith(QLatin1String("0000")) && text.endsWith(base, Qt::CaseInsensitive);
        m_size = isAssigned ? 2 : 16;
        m_number = isAssigned ? text.mid(4, 4).toUInt(nullptr, 16) : 0;
    } else if (readHex(digits, 4, m_number)) {
        m_size = 2;
    } else if (readHex(digits, 8, m_number)) {
        m_size = 4;
    }
}

Preflight::ExportState Preflight::exportState(const QObject* object, const QString& path)
{
    if (!isObjectPath(path)) {
        return InvalidPath;
    }
    const QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.isConnected()) {
        return NoBus;
    }
    return bus.objectRegisteredAt(path) == object ? Exported : PathTaken;
}

BleFindings Preflight::pathFindings(const QString& path, ExportState state)
{
    const auto error = [&path](const QString& message, const QString& remedy) {
        return BleFindings{{BleFinding::Error, path, message, remedy}};
    };
    switch (state) {
    case Exported:
        break;
    case InvalidPath:
        return error(
            QStringLiteral("This is not a valid object path and cannot be exported"),
            QStringLiteral("Use letters, digits and \"_\" between single slashes, and no \"/\" at the end"));
    case NoBus:
        return error(
            QStringLiteral("There is no connection to the system bus"),
            QStringLiteral("Start the bus before the program, or let DBUS_SYSTEM_BUS_ADDRESS name it"));
    case PathTaken:
        return error(QStringLiteral("It is not exported: the path was taken when it was made"),
                     QStringLiteral("Give every object a path of its own"));
    }
    return {};
}

BleFindings Preflight::uuidFindings(const QString& location, const QString& uuid)
{
    if (Uuid(uuid).size() != 0) {
        return {};
    }
    return {{BleFinding::Error, location, QStringLiteral("\"%1\" is not a valid UUID").arg(uuid),
             QStringLiteral("Write it like \"180f\" or \"0000180f-0000-1000-8000-00805f9b34fb\"")}};
}
