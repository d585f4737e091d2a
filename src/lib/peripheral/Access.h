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
 * A plain value: each of the five functions returns a copy that allows one thing more. If one is called
 * twice, the later level counts. BlueZ checks the level itself, before it calls the program.
 */
class PLIM_PERIPHERAL_EXPORT Access
{
public:
    /** How well the link has to be protected before BlueZ calls the program. */
    enum Level
    {
        Open,          ///< anything
        Encrypted,     ///< encrypted: the central is paired, by whatever method
        Authenticated, ///< paired by a method that keeps a third party out: a passkey, a comparison, out of
                       ///< band
        SecureConnections ///< authenticated, and by LE Secure Connections
    };

    /** Allows nothing. BlueZ rejects an application with such an attribute. */
    Access() = default;

    /** Also allows reads. */
    [[nodiscard]] Access read(Level level = Open) const;

    /** Also allows writes with a response. */
    [[nodiscard]] Access write(Level level = Open) const;

    /**
     * Also allows writes without a response (Write Commands). They have no level of their own: the level of
     * write() applies to both.
     *
     * BlueZ then acknowledges every write before the program has answered, even writes with a response. So a
     * central never learns that a write handler has rejected its write.
     */
    [[nodiscard]] Access writeWithoutResponse() const;

    /** Also allows notifications. The level is for subscribing. Not for descriptors. */
    [[nodiscard]] Access notify(Level level = Open) const;

    /** Also allows indications, which the central confirms. The level is for subscribing. Not for
     * descriptors.
     */
    [[nodiscard]] Access indicate(Level level = Open) const;

    /** Whether it may be read. */
    bool allowsRead() const { return m_read.has_value(); }

    /** Whether it may be written, with or without a response. */
    bool allowsWrite() const { return m_write.has_value() || m_writeWithoutResponse; }

    /** Whether it may be written without a response. */
    bool allowsWriteWithoutResponse() const { return m_writeWithoutResponse; }

    /** Whether it may be subscribed to, for notifications or indications. */
    bool allowsSubscribing() const { return m_notify.has_value() || m_indicate.has_value(); }

    /** Whether it may be subscribed to for indications. */
    bool allowsIndications() const { return m_indicate.has_value(); }

    /** Whether it has any level other than Open. */
    bool isProtected() const;

    /** The part that applies to descriptors: reads, and writes with a response. */
    Access ofDescriptor() const;

    /**
     * BlueZ's names of what is allowed, always in this order: reads, writes, writes without a response,
     * notifications, indications; for instance "read", "encrypt-write", "notify".
     */
    QStringList flags() const;

    /** The flags with ", " between them, or "nothing". */
    QString text() const;

    /** Whether both allow the same with the same levels. */
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
