#include "PrivateBus.h"

#include <QFile>

namespace {

constexpr int PatienceMs = 30000;

void write(const QString& path, const QString& text)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text.toUtf8()) < 0) {
        qFatal("cannot write %s", qPrintable(path));
    }
}

QString firstLine(QProcess& process)
{
    while (!process.canReadLine()) {
        if (!process.waitForReadyRead(PatienceMs)) {
            qFatal("%s did not become ready: %s; %s", qPrintable(process.program()),
                   qPrintable(process.errorString()), process.readAllStandardError().constData());
        }
    }
    return QString::fromUtf8(process.readLine()).trimmed();
}

void end(QProcess& process)
{
    process.terminate();
    if (!process.waitForFinished(PatienceMs)) {
        process.kill();
        process.waitForFinished(PatienceMs);
    }
}

} // namespace

PrivateBus::PrivateBus(const QString& rules, const QString& activated)
{
    const QString configuration = m_folder.filePath("bus.conf");
    write(configuration, QString("<busconfig><type>session</type><listen>unix:tmpdir=/tmp</listen>"
                                 "<auth>EXTERNAL</auth><servicedir>%1</servicedir>"
                                 "<policy context='default'><allow user='*'/><allow own='*'/>"
                                 "<allow send_destination='*' eavesdrop='true'/><allow eavesdrop='true'/>%2"
                                 "</policy></busconfig>")
                             .arg(m_folder.path(), rules));
    if (!activated.isEmpty()) {
        write(m_folder.filePath("org.bluez.service"),
              "[D-BUS Service]\nName=org.bluez\nExec=" + activated + '\n');
    }
    m_process.start("dbus-daemon", {"--config-file=" + configuration, "--nofork", "--print-address"});
    m_address = firstLine(m_process);
}

PrivateBus::~PrivateBus()
{
    end(m_process);
}

Companion::Companion(const QString& program, const QStringList& arguments, const QString& address,
                     const QString& folder)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", address);
    m_process.setProcessEnvironment(environment);
    m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process.setWorkingDirectory(folder);
    m_process.start(program, arguments);
    firstLine(m_process);
}

Companion::~Companion()
{
    end(m_process);
}
