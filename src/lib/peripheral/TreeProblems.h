#pragma once

#include "Access.h"
#include "BleFinding.h"

#include <QVersionNumber>

class GattApplication;
class GattCharacteristic;
class GattDescriptor;
class GattService;

namespace plim {

class Service;

namespace detail {

/** Finds what plim::problems() lists in addition to GattApplication::problems(). Internal: not installed. */
class TreeProblems
{
public:
    /**
     * @param daemon    the daemon's version; null if it is not known
     * @param hasAgent  whether this program has an agent that answers when a central wants to pair
     */
    TreeProblems(const QVersionNumber& daemon, bool hasAgent) : m_daemon(daemon), m_hasAgent(hasAgent) {}

    BleFindings of(const GattApplication& application);

private:
    void check(const GattService& service);
    void check(const GattCharacteristic& characteristic);
    void check(const GattDescriptor& descriptor);
    void checkIncludes(const Service& service);
    void checkAccess(const QString& path, const Access& access, bool hasWriteHandler);
    void add(BleFinding::Severity severity, const QString& path, const char* message, const char* remedy);

    const QVersionNumber m_daemon;
    const bool m_hasAgent;
    BleFindings m_findings;
    QString m_protected; ///< the path of the first protected attribute
    bool m_hasCharacteristic = false;
};

} // namespace detail
} // namespace plim
