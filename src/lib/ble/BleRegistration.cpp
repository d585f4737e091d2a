#include "BleRegistration.h"

namespace {

/** The error's message, and its D-Bus name to search for. */
QString errorText(const QString& name, const QString& message)
{
    return message.isEmpty() ? name : QStringLiteral("%1 (%2)").arg(message, name);
}

} // namespace

QString BleRegistrationEvent::text() const
{
    switch (kind) {
    case ManagerAppeared:
        return QStringLiteral("%1 appeared at %2").arg(managerInterface, managerPath);
    case ManagerGone:
        return QStringLiteral("%1 is gone from %2").arg(managerInterface, managerPath);
    case AdvertisementReleased:
        return QStringLiteral("BlueZ released %1").arg(objectPath);
    case StepSucceeded:
    case StepFailed:
        break;
    }
    const QString subject = QStringLiteral("%1 of %2 at %3").arg(step, objectPath, managerPath);
    const QString outcome = kind == StepSucceeded
                                ? QStringLiteral(": done")
                                : QStringLiteral(": failed: ") + errorText(errorName, errorMessage);
    return subject + outcome + (superseded ? QStringLiteral(" (superseded)") : QString());
}

QString BleRegistrationState::text() const
{
    switch (phase) {
    case NotHeld:
        return QStringLiteral("not held");
    case WaitingForBlueZ:
        return QStringLiteral("waiting for BlueZ");
    case Pending:
        return QStringLiteral("registration pending at %1").arg(managerPath);
    case Registered:
        return QStringLiteral("registered at %1").arg(managerPath);
    case Refused:
        return QStringLiteral("refused at %1: %2").arg(managerPath, errorText(errorName, errorMessage));
    case Dropped:
        return QStringLiteral("held, no longer registered at %1").arg(managerPath);
    }
    return {};
}
