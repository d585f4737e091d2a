#pragma once

#include <QList>
#include <QString>

/** What was measured several times. */
class Samples
{
public:
    void add(double sample) { m_samples << sample; }
    int count() const { return int(m_samples.size()); }
    /** The smallest sample that is not below so large a part of them: 0.5 gives the median. */
    double quantile(double part) const;
    /** Median and quartiles with so many decimals: "12.3 (12.1-12.6)". */
    QString text(int decimals) const;

private:
    QList<double> m_samples;
};

/** The process with a name on the system bus; the scene ends if there is none. */
qint64 processOnBus(const QString& name);

/** Measures the processor time of a process, the kernel's part included. */
class ProcessorMeter
{
public:
    explicit ProcessorMeter(qint64 process);
    /** Microseconds since it was called last; at first, since the program was started. */
    double lap();

private:
    int m_clock = 0;
    qint64 m_last = 0;
};
