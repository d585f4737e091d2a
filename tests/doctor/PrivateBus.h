#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

/** A message bus with rules of its own, beside the one that the test runs on. */
class PrivateBus
{
public:
    /**
     * @param rules      what is added to a policy that allows everything: <deny .../>, <allow .../>
     * @param activated  the command with which the bus is to start org.bluez, empty for none
     */
    explicit PrivateBus(const QString& rules = {}, const QString& activated = {});
    ~PrivateBus();
    Q_DISABLE_COPY(PrivateBus)

    QString address() const { return m_address; }

private:
    QTemporaryDir m_folder;
    QProcess m_process;
    QString m_address;
};

/** A program on such a bus that prints a line when it is ready, and ends with this object. */
class Companion
{
public:
    Companion(const QString& program, const QStringList& arguments, const QString& address,
              const QString& folder = {});
    ~Companion();
    Q_DISABLE_COPY(Companion)

    qint64 pid() const { return m_process.processId(); }

private:
    QProcess m_process;
};
