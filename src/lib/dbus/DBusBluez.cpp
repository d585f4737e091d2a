#include "DBusBluez.h"

QString DBusBluezServiceName()
{
    return QStringLiteral("org.bluez");
}

QString DBusBluezObjectManagerPath()
{
    return QStringLiteral("/");
}
