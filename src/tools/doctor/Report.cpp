#include "Report.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cstdio>

namespace doctor {

namespace {

void print(FILE* file, const QString& line)
{
    std::fprintf(file, "%s\n", qUtf8Printable(line));
    std::fflush(file);
}

QString counted(int number, const QString& what)
{
    return QString("%1 %2%3").arg(number).arg(what, number == 1 ? "" : "s");
}

} // namespace

void Report::ok(const char* name, const QString& text, const QVariantMap& values)
{
    add(name, "ok", text, {}, values);
}

void Report::warning(const char* name, const QString& text, const QString& remedy, const QVariantMap& values)
{
    ++m_warnings;
    add(name, "warning", text, remedy, values);
}

void Report::problem(const char* name, const QString& text, const QString& remedy, const QVariantMap& values)
{
    ++m_problems;
    add(name, "problem", text, remedy, values);
}

void Report::progress(const QString& text)
{
    print(stderr, "... " + text);
}

int Report::finish() const
{
    if (m_isJson) {
        const QJsonObject whole{{"problems", m_problems}, {"warnings", m_warnings}, {"findings", m_findings}};
        print(stdout, QString::fromUtf8(QJsonDocument(whole).toJson()).trimmed());
    } else {
        print(stdout, counted(m_problems, "problem") + ", " + counted(m_warnings, "warning"));
    }
    return m_problems == 0 ? AllWell : ProblemFound;
}

void Report::add(const char* name, const char* severity, const QString& text, const QString& remedy,
                 const QVariantMap& values)
{
    if (!m_isJson) {
        print(stdout, QString("%1 %2").arg(severity, -8).arg(text));
        if (!remedy.isEmpty()) {
            print(stdout, "    remedy: " + remedy);
        }
        return;
    }
    QJsonObject finding{{"name", name}, {"severity", severity}, {"text", text}};
    if (!remedy.isEmpty()) {
        finding["remedy"] = remedy;
    }
    if (!values.isEmpty()) {
        finding["values"] = QJsonObject::fromVariantMap(values);
    }
    m_findings.append(finding);
}

} // namespace doctor
