#pragma once

#include "PlimCoreExport.h"

#include <QByteArray>
#include <QMetaMethod>
#include <QObject>
#include <QString>
#include <QVariant>

#include <iosfwd>
#include <string>

/**
 * The text after "Enter " in a log line: the qualified name from a function's signature, so
 * "void BleManager::add(const GattApplication*)" becomes "BleManager::add".
 *
 * @param signature   a function's full signature, as compilers write it; a text without parentheses is
 * returned as it is
 * @param loggerName  the logger that the line is for; it does not change the text
 */
PLIM_CORE_EXPORT std::string dbglog_scopedFunction(const std::string& signature,
                                                   const std::string& loggerName);

/** Writes the text UTF-8 encoded, with nothing around it. */
PLIM_CORE_EXPORT std::ostream& operator<<(std::ostream& stream, const QString& text);

/** Writes the bytes as they are, zero bytes included. */
PLIM_CORE_EXPORT std::ostream& operator<<(std::ostream& stream, const QByteArray& bytes);

/**
 * Writes the value: strings, numbers, booleans and whatever else converts to a string as that string, byte
 * arrays as their bytes, object paths as their characters, any other type as its name in angle brackets, and
 * an invalid variant as "<invalid>".
 */
PLIM_CORE_EXPORT std::ostream& operator<<(std::ostream& stream, const QVariant& value);

namespace plim {

/** Writes "assertion failed: " and the assertion's text to standard error and aborts, in every build type. */
[[noreturn]] PLIM_CORE_EXPORT void assertionFailed(const char* assertion);

namespace detail {
/**
 * Whether the receiver can get a signal's parameters: on the sender's thread always, on another thread only
 * if each parameter type that is not a pointer is a registered meta-type.
 */
PLIM_CORE_EXPORT bool verifyConnectionSignalParameters(const QObject* sender, const QMetaMethod& signal,
                                                       const QObject* receiver);
} // namespace detail

/**
 * QObject::connect() with function pointers, checked. A connection that could not deliver the signal is a
 * programming error and aborts the process, also in release builds.
 *
 * @param slot  a slot or signal of the receiver, or a function object that runs in the receiver's thread
 *
 * Aborts with "verifyConnectionSignalParameters(sender, signal, receiver, type)" when sender and receiver
 * live on different threads and a parameter's type is not a registered meta-type, and with "connection" when
 * Qt makes no connection (a null sender or receiver, or a function that is not a signal).
 */
template <typename Sender, typename Signal, typename Receiver, typename Slot>
QMetaObject::Connection connect(const Sender* sender, Signal signal, const Receiver* receiver, Slot slot,
                                Qt::ConnectionType type = Qt::AutoConnection)
{
    if (!detail::verifyConnectionSignalParameters(sender, QMetaMethod::fromSignal(signal), receiver)) {
        assertionFailed("verifyConnectionSignalParameters(sender, signal, receiver, type)");
    }
    QMetaObject::Connection connection = QObject::connect(sender, signal, receiver, slot, type);
    if (!connection) {
        assertionFailed("connection");
    }
    return connection;
}

/**
 * QObject::disconnect() with function pointers, checked: aborts with "disconnectSucceeded" if there was
 * nothing to disconnect.
 */
template <typename Sender, typename Signal, typename Receiver, typename Slot>
void disconnect(const Sender* sender, Signal signal, const Receiver* receiver, Slot slot)
{
    const bool disconnectSucceeded = QObject::disconnect(sender, signal, receiver, slot);
    if (!disconnectSucceeded) {
        assertionFailed("disconnectSucceeded");
    }
}

} // namespace plim
