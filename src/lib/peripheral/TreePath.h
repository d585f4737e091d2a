#pragma once

#include <QString>

namespace plim {
namespace detail {

/** Where an object of the tree stands: its path, and its place in its parent. Internal: not installed. */
class TreePath
{
public:
    /**
     * @param parent   the parent's object path
     * @param uuid     the UUID
     * @param element  what the path ends in; empty for the UUID with "_" for "-"
     */
    TreePath(const QString& parent, const QString& uuid, const QString& element);

    /** The object path. */
    QString path() const { return m_path; }

    /** What the parent records it under: the UUID, as the base classes have it, and then the element. */
    QString key() const { return m_key; }

private:
    QString m_path;
    QString m_key;
};

} // namespace detail
} // namespace plim
