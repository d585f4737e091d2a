#pragma once

#include <QString>
#include <QStringList>

class Peripheral;

/** The peripheral that most scenes use: what it is told to be, and the UUIDs of what is in it. */
namespace SceneTree {

/** The UUID of the object with the number. */
inline QString uuid(int number)
{
    return QStringLiteral("5ce0%1-3a7e-4c1d-8f2b-90d4a1b6c2e7").arg(number, 4, 16, QLatin1Char('0'));
}

const QString values = uuid(0x1000);
const QString fixed = uuid(0x1001);
const QString asked = uuid(0x1002);
const QString empty = uuid(0x1003);
const QString longest = uuid(0x1004);
const QString writable = uuid(0x1005);
const QString described = uuid(0x1006);
const QString description = uuid(0x1007);
const QString note = uuid(0x1008);

const QString paged = uuid(0x2000);
const QString page = uuid(0x2001);
const QString record = uuid(0x2002);
const QString counter = uuid(0x2003);

const QString secondary = uuid(0x3000);
const QString hidden = uuid(0x3001);

/** The name that is advertised. */
const QString name = QStringLiteral("Scene");

/** Builds it and hands it to the manager, together with an advertisement. */
void build(Peripheral& peripheral);

/** The commands that build the application only. */
QStringList application();
/** The commands for an advertisement that stock daemons take. */
QStringList advertisement();

} // namespace SceneTree
