#include "Doctor.h"

#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTimer>

namespace {

constexpr int PatienceMs = 50000;

} // namespace

QString Doctor::Result::line(const QString& name) const
{
    const Finding found = finding(name);
    if (found.severity.isEmpty()) {
        return "only " + names.join(", ") + "; " + errors;
    }
    return found.severity + ' ' + found.text + (found.remedy.isEmpty() ? QString() : " | " + found.remedy);
}

Doctor::Doctor(const QStringList& arguments, const QString& address, const QStringList& wrapper)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", address);
    m_process.setProcessEnvironment(environment);
    const QStringList command = wrapper + QStringList(qEnvironmentVariable("PLIM_DOCTOR")) + arguments;
    m_process.start(command.constFirst(), command.mid(1));
}

Doctor::~Doctor()
{
    m_process.kill();
    m_process.waitForFinished();
}

Doctor::Result Doctor::result()
{
    Result result = plainResult();
    const QJsonObject whole = QJsonDocument::fromJson(result.output.toUtf8()).object();
    for (const QJsonValue value : whole["findings"].toArray()) {
        const QJsonObject finding = value.toObject();
        result.names += finding["name"].toString();
        result.findings += Finding{finding["severity"].toString(), finding["text"].toString(),
                                   finding["remedy"].toString(), finding["values"].toObject()};
    }
    return result;
}

Doctor::Result Doctor::plainResult()
{
    if (m_process.state() != QProcess::NotRunning) {
        QEventLoop loop; // the test may have to answer somebody meanwhile
        QObject::connect(&m_process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), &loop,
                         &QEventLoop::quit);
        QTimer::singleShot(PatienceMs, &loop, &QEventLoop::quit);
        loop.exec();
    }
    Result result;
    if (m_process.state() == QProcess::NotRunning && m_process.exitStatus() == QProcess::NormalExit) {
        result.exitCode = m_process.exitCode();
    }
    result.output = QString::fromUtf8(m_process.readAllStandardOutput());
    result.errors = errors();
    return result;
}

QString Doctor::errors()
{
    m_errors += QString::fromUtf8(m_process.readAllStandardError());
    return m_errors;
}

Doctor::Result Doctor::examine(const QStringList& arguments, const QString& address)
{
    return Doctor(QStringList("--json") + arguments, address).result();
}
