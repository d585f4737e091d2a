#include "AttError.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr int firstApplication = 0x80;
constexpr int lastApplication = 0x9f;

struct Known
{
    quint8 code;
    const char* dbusName;
    const char* name;
};

constexpr Known knownErrors[] = {
    {plim::AttError::ReadNotPermitted, "NotPermitted", "Read Not Permitted"},
    {plim::AttError::WriteNotPermitted, "NotPermitted", "Write Not Permitted"},
    {plim::AttError::RequestNotSupported, "NotSupported", "Request Not Supported"},
    {plim::AttError::InvalidOffset, "InvalidOffset", "Invalid Offset"},
    {plim::AttError::InsufficientAuthorization, "NotAuthorized", "Insufficient Authorization"},
    {plim::AttError::InvalidAttributeValueLength, "InvalidValueLength", "Invalid Attribute Value Length"},
    {plim::AttError::UnlikelyError, "Failed", "Unlikely Error"},
    {plim::AttError::ImproperlyConfigured, "ImproperlyConfigured", "Improperly Configured"},
    {plim::AttError::ProcedureAlreadyInProgress, "InProgress", "Procedure Already in Progress"},
};

const Known* find(int code)
{
    const auto it = std::find_if(std::begin(knownErrors), std::end(knownErrors),
                                 [code](const Known& known) { return known.code == code; });
    return it == std::end(knownErrors) ? nullptr : it;
}

QString hexadecimal(quint8 code)
{
    return QStringLiteral("0x%1").arg(code, 2, 16, QLatin1Char('0'));
}

} // namespace

plim::AttError::AttError(Code code) : m_code(find(code) ? code : UnlikelyError) {}

plim::AttError plim::AttError::application(int code)
{
    AttError error = UnlikelyError;
    if (code >= firstApplication && code <= lastApplication) {
        error.m_code = quint8(code);
    }
    return error;
}

bool plim::AttError::isApplication() const
{
    return m_code >= firstApplication && m_code <= lastApplication;
}

QString plim::AttError::dbusName() const
{
    const Known* known = find(m_code);
    return QStringLiteral("org.bluez.Error.") + QLatin1String(known ? known->dbusName : "Failed");
}

QString plim::AttError::dbusText() const
{
    // BlueZ takes the number from the text of the error Failed. Without a text it sends an application error.
    return isApplication() || m_code == UnlikelyError ? hexadecimal(m_code) : QString();
}

QString plim::AttError::text() const
{
    const Known* known = find(m_code);
    return QStringLiteral("%1 (%2)").arg(QLatin1String(known ? known->name : "Application Error"),
                                         hexadecimal(m_code));
}
