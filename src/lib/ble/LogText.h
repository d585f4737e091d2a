#pragma once

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <string>

/** The texts of containers in log lines. */
namespace LogText {

/** "(" + the items joined by ", " + ")". */
QString list(const QStringList& items);

/** "QMap(" + "(key, value)" for each entry in key order, with nothing between them + ")". */
std::string map(const QVariantMap& entries);

} // namespace LogText
