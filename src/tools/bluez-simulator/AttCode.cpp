#include "AttCode.h"

#include <QMap>

namespace simulator {

namespace {

bool isApplicationError(long code)
{
    return code >= long(AttCode::FirstApplicationError) && code <= long(AttCode::LastApplicationError);
}

/** The error Failed may carry a number of the application's own. */
AttCode codeOfFailed(const QDBusMessage& error)
{
    if (error.arguments().isEmpty()) {
        return AttCode::FirstApplicationError;
    }
    const QString text = error.errorMessage();
    bool isNumber = false;
    const long code = text.toLong(&isNumber, 0);
    if (isNumber || text.isEmpty()) {
        return isApplicationError(code) ? AttCode(code) : AttCode::UnlikelyError;
    }
    return AttCode::FirstApplicationError;
}

} // namespace

AttCode attCodeOf(const QDBusMessage& error, AttCode notPermitted, BluezVersion version)
{
    static const QMap<QString, AttCode> codes{
        {QStringLiteral("NotSupported"), AttCode::RequestNotSupported},
        {QStringLiteral("NotAuthorized"), AttCode::InsufficientAuthorization},
        {QStringLiteral("InvalidValueLength"), AttCode::InvalidAttributeValueLength},
        {QStringLiteral("InvalidOffset"), AttCode::InvalidOffset},
        {QStringLiteral("InProgress"), AttCode::ProcedureAlreadyInProgress}};
    const QString prefix = QStringLiteral("org.bluez.Error.");
    const QString name =
        error.errorName().startsWith(prefix) ? error.errorName().mid(prefix.size()) : QString();
    if (name == QLatin1String("Failed")) {
        return codeOfFailed(error);
    }
    if (name == QLatin1String("NotPermitted")) {
        return notPermitted;
    }
    if (name == QLatin1String("ImproperlyConfigured") && version == BluezVersion::Bluez582) {
        return AttCode::ImproperlyConfigured;
    }
    return codes.value(name, AttCode::UnlikelyError);
}

QString attText(AttCode code)
{
    static const QMap<AttCode, QString> names{
        {AttCode::ReadNotPermitted, QStringLiteral("Read Not Permitted")},
        {AttCode::WriteNotPermitted, QStringLiteral("Write Not Permitted")},
        {AttCode::InsufficientAuthentication, QStringLiteral("Insufficient Authentication")},
        {AttCode::RequestNotSupported, QStringLiteral("Request Not Supported")},
        {AttCode::InvalidOffset, QStringLiteral("Invalid Offset")},
        {AttCode::InsufficientAuthorization, QStringLiteral("Insufficient Authorization")},
        {AttCode::AttributeNotFound, QStringLiteral("Attribute Not Found")},
        {AttCode::InvalidAttributeValueLength, QStringLiteral("Invalid Attribute Value Length")},
        {AttCode::UnlikelyError, QStringLiteral("Unlikely Error")},
        {AttCode::InsufficientEncryption, QStringLiteral("Insufficient Encryption")},
        {AttCode::ImproperlyConfigured, QStringLiteral("Improperly Configured")},
        {AttCode::ProcedureAlreadyInProgress, QStringLiteral("Procedure Already in Progress")}};
    return QStringLiteral("0x%1 %2")
        .arg(int(code), 2, 16, QLatin1Char('0'))
        .arg(names.value(code, QStringLiteral("Application Error")));
}

} // namespace simulator
