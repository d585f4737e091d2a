#pragma once

#include "PlimBleTestProcesses.h"

/** A message bus with rules of its own, beside the one that the test runs on. */
using PrivateBus = PlimBleTestDetail::Bus;

/** A program on such a bus that prints a line when it is ready, and ends with this object. */
class Companion
{
public:
    Companion(const QString& program, const QStringList& arguments, const QString& address,
              const QString& folder = {});
    Q_DISABLE_COPY(Companion)

    qint64 pid() const { return m_process.processId(); }

private:
    PlimBleTestDetail::Child m_process;
};
