#pragma once

#include <QJsonArray>
#include <QString>
#include <QVariantMap>

/**
 * Takes what the doctor finds out: prints each finding at once as a line of plain words, or all of them as
 * JSON at the end.
 *
 * The name of a finding stands for its kind ("adapter.off") and is what programs that read the JSON look at.
 * The values are what the text says, for the same programs.
 */
class Report
{
public:
    enum ExitCode
    {
        AllWell = 0, // there may be warnings
        ProblemFound = 1,
        WrongArguments = 2
    };

    explicit Report(bool isJson) : m_isJson(isJson) {}

    void ok(const char* name, const QString& text, const QVariantMap& values = {});
    /** Something that works and may still surprise. */
    void warning(const char* name, const QString& text, const QString& remedy,
                 const QVariantMap& values = {});
    /** Something that keeps a peripheral from working, and the one thing to do first about it. */
    void problem(const char* name, const QString& text, const QString& remedy,
                 const QVariantMap& values = {});

    /** Tells somebody who waits what is waited for; not part of the result. */
    static void progress(const QString& text);

    /** Prints the rest; the exit code. */
    int finish() const;

private:
    void add(const char* name, const char* severity, const QString& text, const QString& remedy,
             const QVariantMap& values);

    bool m_isJson;
    int m_problems = 0;
    int m_warnings = 0;
    QJsonArray m_findings;
};
