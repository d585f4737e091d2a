#include "TreePath.h"

plim::detail::TreePath::TreePath(const QString& parent, const QString& uuid, const QString& element)
    : m_path(parent + QLatin1Char('/') +
             (element.isEmpty() ? QString(uuid).replace(QLatin1Char('-'), QLatin1Char('_')) : element)),
      m_key(element.isEmpty() ? uuid : uuid + QLatin1Char('/') + element)
{
}
