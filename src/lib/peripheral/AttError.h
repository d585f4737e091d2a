#pragma once

#include "PlimPeripheralExport.h"

#include <QMetaType>
#include <QString>

namespace plim {

/**
 * Why a request is refused, as the central gets it: an error of the Attribute Protocol.
 *
 *     request.reject(plim::AttError::InsufficientAuthorization);
 *     request.reject(plim::AttError::application(0x81));
 *
 * Only the errors that BlueZ can pass on are here. Those about the link's protection are not: BlueZ gives
 * them itself, by the attribute's Access.
 */
class PLIM_PERIPHERAL_EXPORT AttError
{
public:
    /** The errors by their names in the Core Specification. */
    enum Code : quint8
    {
        ReadNotPermitted = 0x02,            ///< of a write it becomes WriteNotPermitted
        WriteNotPermitted = 0x03,           ///< of a read it becomes ReadNotPermitted
        RequestNotSupported = 0x06,         ///< the attribute does not support the request
        InvalidOffset = 0x07,               ///< the offset is beyond the end of the value
        InsufficientAuthorization = 0x08,   ///< this central may not do that
        InvalidAttributeValueLength = 0x0d, ///< the value is too short or too long
        UnlikelyError = 0x0e,               ///< something went wrong that no other error says
        ImproperlyConfigured = 0xfd,        ///< older daemons, 5.66 among them, make UnlikelyError of it
        ProcedureAlreadyInProgress = 0xfe   ///< an earlier request is still being worked on
    };

    /** That error. Of a number that is none of them it becomes UnlikelyError. */
    AttError(Code code = UnlikelyError); // NOLINT(google-explicit-constructor): a code is an error

    /**
     * An error that the application defines: what it means stands in the description of its service.
     * @param code  from 0x80 to 0x9f; any other becomes UnlikelyError
     */
    static AttError application(int code);

    /** The error's number. */
    quint8 code() const { return m_code; }

    /** The D-Bus error with which BlueZ is told, for instance "org.bluez.Error.NotAuthorized". */
    QString dbusName() const;

    /** The text that goes with it: the number, for instance "0x81", where BlueZ reads it; empty otherwise. */
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
