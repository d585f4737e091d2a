#pragma once

#include <QString>

namespace doctor {

/** The program file that a process runs, as far as /proc lets this user see it. */
class RunningProgram
{
public:
    explicit RunningProgram(uint pid);

    /** The file's name without its folder; empty if this user may not see it. */
    QString name() const { return m_name; }

    struct Version
    {
        QString text;   // "5.66"; empty if it is unknown
        QString reason; // why the version is unknown
    };

    /**
     * The file's answer to --version. It is run only if no other user than root and this one can have written
     * it. Otherwise another user's program would run with the rights of this user.
     */
    Version version() const;

private:
    QString m_name;
    QString m_path; // in /proc, or the path in the process's command line
};

} // namespace doctor
