#pragma once

#include <QFile>
#include <QProcess>
#include <QString>
#include <QStringList>

/**
 * A program that a scene runs, until this object ends. What it writes goes straight into the scene's logs, as
 * NAME.log: while the scene waits for an answer of the daemon's, nobody would empty a pipe, and the program
 * would stand still.
 */
class Child
{
public:
    Child(const QString& name, const QString& program, const QStringList& arguments = {});
    virtual ~Child();
    Q_DISABLE_COPY(Child)

    /** The folder for the logs of all programs of this process. */
    static void setLogs(const QString& folder);
    static QString logs();

    /** Everything in its log. */
    QString text() const;
    bool wrote(const QString& text) const { return this->text().contains(text); }
    int count(const QString& text) const { return int(this->text().count(text)); }
    qint64 process() const { return m_process.processId(); }
    bool running() const { return m_process.state() == QProcess::Running; }

    /** Writes a line to its standard input. */
    void write(const QString& line);
    /** Sends what was written; otherwise the event loop does it. */
    void flush() { m_process.waitForBytesWritten(); }

    /** How it has ended by itself ("died of signal 11"); empty while it runs, and where it was ended. */
    QString death();

    /** Ends it: asked first, then by force. */
    void end();
    /** Ends it by force. */
    void kill();

protected:
    enum class Output
    {
        AllIntoLog,
        LinesToUs // standard output, which has to be little
    };
    Child(const QString& name, const QString& program, const QStringList& arguments, Output output);

    /** A whole line that it wrote to standard output. */
    virtual void onLine(const QString&) {}

private:
    void onOutput();

    QProcess m_process;
    QByteArray m_pending;
    bool m_isEnded = false;
    mutable QFile m_log;
    mutable QString m_text;
};
