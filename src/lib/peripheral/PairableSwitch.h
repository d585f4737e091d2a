#pragma once

#include <QObject>
#include <QString>

#include <memory>

namespace plim {
namespace detail {

class BluezObjects;

/** Keeps the property Pairable of all adapters as it is told, also of those that come later. Internal: not
 * installed. */
class PairableSwitch : public QObject
{
    Q_OBJECT

public:
    PairableSwitch();

    /** Sets the property of all adapters, and from now on of those that appear. */
    void set(bool isPairable);

    /** Adapters that appear are left alone again. */
    void stop() { m_isActive = false; }

private:
    void apply(const QString& adapter);

    const std::shared_ptr<BluezObjects> m_bluez;
    bool m_isActive = false;
    bool m_isPairable = false;
};

} // namespace detail
} // namespace plim
