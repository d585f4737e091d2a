#pragma once

#include <QObject>
#include <QVector>

#include <algorithm>
#include <memory>

/**
 * The connections to an object's own slots, as its last member: they end before the members that the slots
 * use. Qt alone ends them after destroyed(), and what a slot of destroyed() does (delete a child, write to a
 * control) would then still arrive at an object of which only the QObject is left.
 *
 * An object holds them by a shared pointer, which can delete what the object's header only declares, and
 * which is null until there is a connection. Internal: not installed.
 */
class OwnConnections
{
public:
    OwnConnections() = default;
    ~OwnConnections()
    {
        for (const QMetaObject::Connection& connection : m_all) {
            QObject::disconnect(connection);
        }
    }
    OwnConnections(const OwnConnections&) = delete;
    OwnConnections& operator=(const OwnConnections&) = delete;

    /** Ends this connection, too, with the holder; one that failed or has ended already may be given. */
    void add(const QMetaObject::Connection& connection)
    {
        if (m_all.size() >= m_sizeToTidyAt) {
            const auto isOver = [](const QMetaObject::Connection& each) { return !each; };
            m_all.erase(std::remove_if(m_all.begin(), m_all.end(), isOver), m_all.end());
            m_sizeToTidyAt = 2 * m_all.size() + 8;
        }
        m_all.append(connection);
    }

    /** The same for a holder that makes this object with its first connection. */
    static void add(std::shared_ptr<OwnConnections>& own, const QMetaObject::Connection& connection)
    {
        if (!own) {
            own = std::make_shared<OwnConnections>();
        }
        own->add(connection);
    }

private:
    QVector<QMetaObject::Connection> m_all;
    int m_sizeToTidyAt = 8;
};
