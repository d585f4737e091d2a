#include "Doctor.h"
#include "PrivateBus.h"
#include "Simulator.h"

#include <QtTest>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

/** A socket that takes every connection, and nothing that comes over it. */
class DeafBus
{
public:
    DeafBus()
    {
        sockaddr_un name = {};
        name.sun_family = AF_UNIX;
        const QByteArray path = QFile::encodeName(m_folder.filePath("bus"));
        std::copy(path.begin(), path.end(), name.sun_path);
        if (::bind(m_socket, reinterpret_cast<sockaddr*>(&name), sizeof name) != 0 ||
            ::listen(m_socket, 8) != 0) {
            qFatal("cannot listen at %s", path.constData());
        }
    }
    ~DeafBus() { ::close(m_socket); }
    Q_DISABLE_COPY(DeafBus)

    QString address() const { return "unix:path=" + m_folder.filePath("bus"); }

private:
    QTemporaryDir m_folder;
    int m_socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

} // namespace

/** What the doctor says about the bus itself. */
class tst_doctor_bus : public QObject
{
    Q_OBJECT

private slots:
    void aBusThatAnswersIsNamed();
    void aBusThatIsNotThereIsAProblem();
    void aBusThatTakesNobodyInIsAProblem();
    void aBusThatSaysNothingIsAProblemInTheEnd();
    void aBusThatDoesNotTellWhoIsThereIsAProblem();
};

void tst_doctor_bus::aBusThatAnswersIsNamed()
{
    const PrivateBus bus;
    const Doctor::Result result = Doctor::examine({}, bus.address());
    QCOMPARE(result.line("bus.reached"), "ok The system bus at " + bus.address() + " answers.");
    QCOMPARE(result.finding("bus.reached").values["address"].toString(), bus.address());
}

void tst_doctor_bus::aBusThatIsNotThereIsAProblem()
{
    const Doctor::Result result = Doctor::examine({}, "unix:path=/nonexistent/bus");
    QCOMPARE(result.names, QStringList("bus.unreachable"));
    QCOMPARE(
        result.line("bus.unreachable"),
        "problem The system bus at unix:path=/nonexistent/bus cannot be reached: Failed to connect to socket "
        "/nonexistent/bus: No such file or directory | Unset DBUS_SYSTEM_BUS_ADDRESS, or set it to the "
        "address of a running bus.");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_bus::aBusThatTakesNobodyInIsAProblem()
{
    const PrivateBus bus("<deny user='*'/>");
    const Doctor::Result result = Doctor::examine({}, bus.address());
    QCOMPARE(result.names, QStringList("bus.unreachable"));
    QCOMPARE(result.finding("bus.unreachable").severity, "problem");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_bus::aBusThatSaysNothingIsAProblemInTheEnd()
{
    const DeafBus bus;
    const Doctor::Result result = Doctor::examine({"--timeout", "3"}, bus.address());
    QCOMPARE(result.names, QStringList("bus.silent"));
    QCOMPARE(result.line("bus.silent"), "problem The system bus at " + bus.address() +
                                            " does not answer within 3 s. | Restart that bus. The system bus "
                                            "of the machine restarts with the machine.");
    QCOMPARE(result.errors, "... waiting for the connection to the bus\n");
    QCOMPARE(result.exitCode, 1);
}

void tst_doctor_bus::aBusThatDoesNotTellWhoIsThereIsAProblem()
{
    const PrivateBus bus("<deny send_interface='org.freedesktop.DBus' send_member='GetNameOwner'/>");
    const Doctor::Result result = Doctor::examine({}, bus.address());
    QCOMPARE(result.names, QStringList({"bus.reached", "bus.refuses"}));
    const QString line = result.line("bus.refuses");
    QVERIFY2(line.startsWith("problem The bus does not say who owns org.bluez: "), qPrintable(line));
    QVERIFY2(line.contains("(org.freedesktop.DBus.Error.AccessDenied) | Allow user "), qPrintable(line));
    QVERIFY2(line.endsWith(" call org.freedesktop.DBus in the configuration of the bus."), qPrintable(line));
    QCOMPARE(result.exitCode, 1);
}

QTEST_GUILESS_MAIN(tst_doctor_bus)
#include "tst_doctor_bus.moc"
