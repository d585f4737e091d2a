#include "Refusal.h"

namespace simulator {

Refusal Refusal::failed(const QString& message)
{
    return {QStringLiteral("org.bluez.Error.Failed"), message};
}

Refusal Refusal::invalidArguments()
{
    return {QStringLiteral("org.bluez.Error.InvalidArguments"),
            QStringLiteral("Invalid arguments in method call")};
}

Refusal Refusal::alreadyExists()
{
    return {QStringLiteral("org.bluez.Error.AlreadyExists"), QStringLiteral("Already Exists")};
}

Refusal Refusal::doesNotExist()
{
    return {QStringLiteral("org.bluez.Error.DoesNotExist"), QStringLiteral("Does Not Exist")};
}

Refusal Refusal::notPermitted(const QString& message)
{
    return {QStringLiteral("org.bluez.Error.NotPermitted"), message};
}

} // namespace simulator
