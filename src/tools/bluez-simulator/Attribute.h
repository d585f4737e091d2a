#pragma once

#include "Names.h"

#include <QDBusMessage>
#include <QStringList>
#include <QVariantMap>

namespace simulator {

/** A characteristic or descriptor of a registered application, as it was read from its client. */
struct Attribute
{
    QString sender;
    QString path;
    QString adapter;   // the path of the one that the application is registered with
    QString interface; // empty where there is no such attribute
    QVariantMap properties;

    explicit operator bool() const { return !interface.isEmpty(); }

    bool isCharacteristic() const { return interface == Names::GattCharacteristic; }
    QStringList flags() const { return properties.value(QStringLiteral("Flags")).toStringList(); }

    /** The call of one of its methods. */
    QDBusMessage call(const QString& member, const QVariantList& arguments = {}) const
    {
        QDBusMessage request = QDBusMessage::createMethodCall(sender, path, interface, member);
        request.setArguments(arguments);
        return request;
    }
};

} // namespace simulator
