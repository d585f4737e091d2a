#include "RunningProgram.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace doctor {

namespace {

constexpr int PatienceMs = 3000;

QByteArray firstArgument(const QString& process)
{
    QFile file(process + "/cmdline");
    return file.open(QIODevice::ReadOnly) ? file.readAll().split('\0').constFirst() : QByteArray();
}

/** Whether only root and this user can change the file. */
bool isTrustworthy(int file)
{
    struct stat status = {};
    return ::fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
           (status.st_uid == 0 || status.st_uid == ::geteuid()) &&
           (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

QString answerToVersion(int file)
{
    QProcess process;
    QProcessEnvironment environment;
    environment.insert("LC_ALL", "C");
    process.setProcessEnvironment(environment);
    // The file that was checked, even if its path has another file by now.
    process.start(QString("/proc/self/fd/%1").arg(file), {"--version"}, QIODevice::ReadOnly);
    if (!process.waitForFinished(PatienceMs)) {
        process.kill();
        process.waitForFinished(PatienceMs);
    }
    static const QRegularExpression number("^\\d+\\.\\d+\\S*");
    return number.match(QString::fromUtf8(process.readAllStandardOutput())).captured();
}

} // namespace

RunningProgram::RunningProgram(uint pid)
{
    const QString process = QString("/proc/%1").arg(pid);
    // Only root can read /proc/PID/exe of another user's process; everybody can read its command line.
    QByteArray program = QFile::encodeName(QFile::symLinkTarget(process + "/exe"));
    if (!program.isEmpty()) {
        m_path = process + "/exe";
    } else {
        program = firstArgument(process);
        m_path = program.startsWith('/') ? QFile::decodeName(program) : QString();
    }
    m_name = QFileInfo(QFile::decodeName(program)).fileName().remove(" (deleted)");
}

RunningProgram::Version RunningProgram::version() const
{
    const int file = m_path.isEmpty() ? -1 : ::open(QFile::encodeName(m_path), O_PATH | O_CLOEXEC);
    if (file < 0) {
        return {{}, "this user may not see its program"};
    }
    const bool trustworthy = isTrustworthy(file);
    const QString answer = trustworthy ? answerToVersion(file) : QString();
    ::close(file);
    if (!trustworthy) {
        return {{}, "users other than root can change its program, so the doctor does not run it"};
    }
    return {answer, answer.isEmpty() ? "its program does not support --version" : ""};
}

} // namespace doctor
