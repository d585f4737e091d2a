#pragma once

#include <QString>

/** The program file that a process runs, as far as /proc lets this user see it. */
class RunningProgram
{
public:
    explicit RunningProgram(uint pid);

    /** The file's name without its folder; empty where it cannot be seen. */
    QString name() const { return m_name; }

    struct Version
    {
        QString text;   // "5.66"; empty where it cannot be told
        QString reason; // why it cannot
    };

    /**
     * What the file answers to --version. It is run only if nobody but root and this user can have written
     * it, so that asking for a version never hands this user's rights to somebody else's program.
     */
    Version version() const;

private:
    QString m_name;
    QString m_path; // what can be opened: in /proc, or the path with which the process says it was started
};
