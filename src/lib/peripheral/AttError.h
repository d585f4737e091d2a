#pragma once

#include "PlimPeripheralExport.h"

#include <QMetaType>
#include <QString>

namespace plim {

/**
 * Why a request is rejected: the error of the Attribute Protocol that the central gets.
 *
 *     request.reject(plim::AttError::InsufficientAuthorization);
 *     request.reject(plim::AttError::application(0x81));
 *
 * It has only the errors that BlueZ can pass on. Errors about the protection of the link are not among them:
 * BlueZ sends those itself, by the attribute's Access.
 */
class PLIM_PERIPHERAL_EXPORT AttError
{
public:
    /** The errors by their names in the Core Specification. */
    enum Code : quint8
    {
        ReadNotPermitted = 0x02,            ///< for a write, BlueZ sends WriteNotPermitted
        WriteNotPermitted = 0x03,           ///< for a read, BlueZ sends ReadNotPermitted
        RequestNotSupported = 0x06,         ///< the attribute does not support the request
        InvalidOffset = 0x07,               ///< the offset is beyond the end of the value
        InsufficientAuthorization = 0x08,   ///< this central may not do that
        InvalidAttributeValueLength = 0x0d, ///< the value is too short or too long
        UnlikelyError = 0x0e,               ///< something went wrong for which there is no other error
        ImproperlyConfigured = 0xfd,        ///< older daemons, such as 5.66, send UnlikelyError instead
        ProcedureAlreadyInProgress = 0xfe   ///< an earlier request is still being worked on
    };

    /** The error with this code; UnlikelyError if the number is not one of them. */
    AttError(Code code = UnlikelyError); // NOLINT(google-explicit-constructor): a code is an error

    /**
     * An error that the application defines, and explains in the description of its service.
     * @param code  from 0x80 to 0x9f; any other number gives UnlikelyError
     */
    static AttError application(int code);

    /** The error's number. */
    quint8 code() const { return m_code; }

    /** The name of the D-Bus error that BlueZ gets, for instance "org.bluez.Error.NotAuthorized". */
    QString dbusName() const;

    /** The text of the D-Bus error: the number, for instance "0x81", if BlueZ reads it; otherwise empty. */
    QString dbusText() const;

    /** For the log: "Insufficient Authorization (0x08)". */
    QString text() const;

    /** Whether both are the same error. */
    friend bool operator==(const AttError& a, const AttError& b) { return a.m_code == b.m_code; }
    /** Whether they differ. */
    friend bool operator!=(const AttError& a, const AttError& b) { return !(a == b); }

private:
    bool isApplication() const;

    quint8 m_code;
};

} // namespace plim

Q_DECLARE_METATYPE(plim::AttError)
