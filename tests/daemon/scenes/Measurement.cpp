#include "Measurement.h"

#include "Expect.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusReply>

#include <algorithm>
#include <cmath>
#include <ctime>

double Samples::quantile(double part) const
{
    QList<double> sorted = m_samples;
    std::sort(sorted.begin(), sorted.end());
    const int index = int(std::ceil(part * double(sorted.size()))) - 1;
    return sorted.value(std::clamp(index, 0, std::max(0, int(sorted.size()) - 1)));
}

QString Samples::text(int decimals) const
{
    const auto number = [&](double part) { return QString::number(quantile(part), 'f', decimals); };
    return number(0.5) + " (" + number(0.25) + '-' + number(0.75) + ')';
}

qint64 processOnBus(const QString& name)
{
    const QDBusReply<uint> process = QDBusConnection::systemBus().interface()->servicePid(name);
    if (!process.isValid()) {
        throw Expect::Impossible{"no process is known for " + name + ": " + process.error().message()};
    }
    return process.value();
}

ProcessorMeter::ProcessorMeter(qint64 process)
{
    if (::clock_getcpuclockid(pid_t(process), &m_clock) != 0) {
        throw Expect::Impossible{QString("process %1 cannot be measured").arg(process)};
    }
}

double ProcessorMeter::lap()
{
    timespec time{};
    if (::clock_gettime(m_clock, &time) != 0) {
        throw Expect::Impossible{"a measured program has ended"};
    }
    const qint64 before = m_last;
    m_last = qint64(time.tv_sec) * 1000000000 + time.tv_nsec;
    return double(m_last - before) / 1000;
}
