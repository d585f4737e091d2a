#include "problems.h"

#include "GattApplication.h"
#include "PairingAgent.h"
#include "TreeProblems.h"

BleFindings plim::problems(const GattApplication& application, const QVersionNumber& daemon)
{
    return application.problems() + detail::TreeProblems(daemon, PairingAgent::exists()).of(application);
}
