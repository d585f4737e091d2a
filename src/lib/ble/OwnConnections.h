#pragma once

#include <QObject>
#include <QVector>

#include <algorithm>
#include <memory>

/**
 * The connections to slots of the object that holds them. They are its last member, so they end before the
 * members that the slots use. Qt itself would end them after destroyed(). By then only the QObject part is
 * left, and a slot could still be called: because something that is connected to destroyed() deletes a child,
 * or writes to a control.
 *
 * Tree objects hold them by a shared pointer: it can delete a class that their headers only declare, and it
 * is null until there is a connection. Internal: not installed.
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

    /** Adds a connection, which ends with the holder. One that failed or has ended already is allowed. */
    void add(const QMetaObject::Connection& connection)
    {
        if (m_all.size() >= m_sizeToTidyAt) {
            const auto isOver = [](const QMetaObject::Connection& each) { return !each; };
            m_all.erase(std::remove_if(m_all.begin(), m_all.end(), isOver), m_all.end());
            m_sizeToTidyAt = 2 * int(m_all.size()) + 8;
        }
        m_all.append(connection);
    }

    /** Adds a connection for a holder whose pointer is null until its first connection. */
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
