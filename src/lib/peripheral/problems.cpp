#include "problems.h"

#include "GattApplication.h"
#include "TreeProblems.h"

BleFindings plim::problems(const GattApplication& application, const QVersionNumber& daemon)
{
    return application.problems() + detail::TreeProblems(daemon, false).of(application);
}
