#pragma once

#include "PlimPeripheralExport.h"

#include <QMetaType>
#include <QString>
#include <QStringList>

#include <optional>

namespace plim {

/**
 * What a central may do with an attribute, and how well its link has to be protected for that.
 *
 *     const auto access = plim::Access().read().write(plim::Access::Encrypted).notify();
 *
 * A plain value: each of the five functions returns a copy that allows one thing more. Asked for twice, the
 * later level counts. BlueZ checks the level itself, before the program is asked.
 */
class PLIM_PERIPHERAL_EXPORT Access
{
public:
    /** What the link has to be before BlueZ lets the central through. */
    enum Level
    {
        Open,          ///< anything
        Encrypted,     ///< encrypted: the central is paired, by whatever method
        Authenticated, ///< paired by a method that keeps a third party out: a passkey, a comparison, out of
                       ///< band
        SecureConnections ///< authenticated, and by LE Secure Connections
    };

    /** Nothing is allowed. BlueZ refuses an application with such an attribute. */
    Access() = default;

    /** Reads too. */
    [[nodiscard]] Access read(Level level = Open) const;

    /** Writes that the central wants an answer to, too. */
    [[nodiscard]] Access write(Level level = Open) const;

    /**
     * Writes that nobody answers (Write Commands), too. They have no level of their own: where write() has
     * one, BlueZ asks it of both.
     *
     * BlueZ then acknowledges every write, those with an answer too, before the program has answered: a write
     * handler's refusal reaches nobody.
     */
    [[nodiscard]] Access writeWithoutResponse() const;

    /** Notifications too. The level is what subscribing takes. Not for descriptors. */
    [[nodiscard]] Access notify(Level level = Open) const;

    /** Indications too, which the central confirms. The level is what subscribing takes. Not for descriptors.
     */
    [[nodiscard]] Access indicate(Level level = Open) const;

    /** Whether it may be read. */
    bool allowsRead() const { return m_read.has_value(); }

    /** Whether it may be written, with or without an answer. */
    bool allowsWrite() const { return m_write.has_value() || m_writeWithoutResponse; }

    /** Whether it may be written without an answer. */
    bool allowsWriteWithoutResponse() const { return m_writeWithoutResponse; }

    /** Whether it may be subscribed to, for notifications or indications. */
    bool allowsSubscribing() const { return m_notify.has_value() || m_indicate.has_value(); }

    /** Whether it may be subscribed to for indications. */
    bool allowsIndications() const { return m_indicate.has_value(); }

    /** Whether anything of it takes more than Open. */
    bool isProtected() const;

    /** What a descriptor can have of it: reads, and writes with an answer. */
    Access ofDescriptor() const;

    /**
     * BlueZ's words for it, always in this order: reading, writing, writing without an answer, notifications,
     * indications; for instance "read", "encrypt-write", "notify".
     */
    QStringList flags() const;

    /** The flags with ", " between them, or "nothing". */
    QString text() const;

    /** Whether both allow the same on the same levels. */
    friend bool operator==(const Access& a, const Access& b)
    {
        return a.m_read == b.m_read && a.m_write == b.m_write &&
               a.m_writeWithoutResponse == b.m_writeWithoutResponse && a.m_notify == b.m_notify &&
               a.m_indicate == b.m_indicate;
    }
    /** Whether they differ. */
    friend bool operator!=(const Access& a, const Access& b) { return !(a == b); }

private:
    std::optional<Level> m_read;
    std::optional<Level> m_write;
    bool m_writeWithoutResponse = false;
    std::optional<Level> m_notify;
    std::optional<Level> m_indicate;
};

} // namespace plim

Q_DECLARE_METATYPE(plim::Access)
