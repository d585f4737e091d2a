#include "Child.h"

#include "Expect.h"

namespace {

QString logFolder = ".";

} // namespace

Child::Child(const QString& name, const QString& program, const QStringList& arguments)
    : Child(name, program, arguments, Output::AllIntoLog)
{
}

Child::Child(const QString& name, const QString& program, const QStringList& arguments, Output output)
    : m_log(logFolder + '/' + name + ".log")
{
    if (output == Output::AllIntoLog) {
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        m_process.setStandardOutputFile(m_log.fileName(), QIODevice::Append);
    } else {
        m_process.setStandardErrorFile(m_log.fileName(), QIODevice::Append);
    }
    QObject::connect(&m_process, &QProcess::readyReadStandardOutput, &m_process, [this] { onOutput(); });
    m_process.start(program, arguments);
    if (!m_process.waitForStarted()) {
        throw Expect::Impossible{"cannot start " + program + ": " + m_process.errorString()};
    }
}

Child::~Child()
{
    end();
}

void Child::setLogs(const QString& folder)
{
    logFolder = folder;
}

QString Child::logs()
{
    return logFolder;
}

QString Child::text() const
{
    if (m_log.isOpen() || m_log.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        m_text += QString::fromUtf8(m_log.readAll());
    }
    return m_text;
}

QString Child::death()
{
    if (m_isEnded || (running() && !m_process.waitForFinished(0))) {
        return {};
    }
    const bool crashed = m_process.exitStatus() == QProcess::CrashExit;
    return QString(crashed ? "died of signal %1" : "ended with exit code %1").arg(m_process.exitCode());
}

void Child::end()
{
    m_isEnded = true;
    if (running()) {
        m_process.terminate();
        if (!m_process.waitForFinished(5000)) {
            kill();
        }
    }
}

void Child::kill()
{
    m_isEnded = true;
    m_process.kill();
    m_process.waitForFinished(5000);
}

void Child::write(const QString& line)
{
    m_process.write(line.toUtf8() + '\n');
}

void Child::onOutput()
{
    m_pending += m_process.readAllStandardOutput();
    for (auto end = m_pending.indexOf('\n'); end >= 0; end = m_pending.indexOf('\n')) {
        const QString line = QString::fromUtf8(m_pending.left(end));
        m_pending.remove(0, end + 1);
        onLine(line);
    }
}
