#pragma once

#include <QJsonArray>
#include <QString>
#include <QVariantMap>

namespace doctor {

/**
 * Prints the findings: each one at once as a line of text, or all of them as JSON at the end.
 *
 * The name of a finding is its kind ("adapter.off"). Programs that read the JSON use the name and the values,
 * which contain the facts of the text.
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
    /** Something that works but may be unexpected. */
    void warning(const char* name, const QString& text, const QString& remedy,
                 const QVariantMap& values = {});
    /** Something that prevents a peripheral from working, and the first thing to do about it. */
    void problem(const char* name, const QString& text, const QString& remedy,
                 const QVariantMap& values = {});

    /** Prints what the program waits for; not part of the result. */
    static void progress(const QString& text);

    /** Prints the rest and returns the exit code. */
    int finish() const;

private:
    void add(const char* name, const char* severity, const QString& text, const QString& remedy,
             const QVariantMap& values);

    bool m_isJson;
    int m_problems = 0;
    int m_warnings = 0;
    QJsonArray m_findings;
};

} // namespace doctor
