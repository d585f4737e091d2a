#pragma once

#include "BluezVersion.h"

#include <QDBusMessage>
#include <QString>

namespace simulator {

/** What a phone is answered with: the errors of the Attribute Protocol. */
enum class AttCode : quint8
{
    Success = 0x00,
    ReadNotPermitted = 0x02,
    WriteNotPermitted = 0x03,
    InsufficientAuthentication = 0x05,
    RequestNotSupported = 0x06,
    InvalidOffset = 0x07,
    InsufficientAuthorization = 0x08,
    AttributeNotFound = 0x0a,
    InvalidAttributeValueLength = 0x0d,
    UnlikelyError = 0x0e,
    InsufficientEncryption = 0x0f,
    FirstApplicationError = 0x80,
    LastApplicationError = 0x9f,
    ImproperlyConfigured = 0xfd,
    ProcedureAlreadyInProgress = 0xfe
};

/** What the daemon makes of the error with which a client answers. notPermitted is what its NotPermitted
 * becomes. */
AttCode attCodeOf(const QDBusMessage& error, AttCode notPermitted, BluezVersion version);

/** The number and the name in the Core Specification, for instance "0x0f Insufficient Encryption". */
QString attText(AttCode code);

} // namespace simulator
