#include "PrivateBus.h"

Companion::Companion(const QString& program, const QStringList& arguments, const QString& address,
                     const QString& folder)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", address);
    m_process.setProcessEnvironment(environment);
    m_process.setWorkingDirectory(folder);
    const QString line = m_process.startAndRead(program, arguments);
    if (m_process.state() != QProcess::Running) {
        qFatal("%s did not become ready: %s", qPrintable(program), qPrintable(line));
    }
}
