#pragma once

#include <QString>

namespace plim {
namespace detail {

/** The object path of an object of the tree, and its key in its parent. Internal: not installed. */
class TreePath
{
public:
    /**
     * @param parent   the parent's object path
     * @param uuid     the UUID
     * @param element  the last element of the path; empty for the UUID with "_" for "-"
     */
    TreePath(const QString& parent, const QString& uuid, const QString& element);

    /** The object path. */
    QString path() const { return m_path; }

    /** The key for the parent's record(): the UUID and, if one was given, "/" and the element. */
    QString key() const { return m_key; }

private:
    QString m_path;
    QString m_key;
};

} // namespace detail
} // namespace plim
