#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

#include <log4cplus/appender.h>
#include <log4cplus/loglevel.h>

/** One line that reached the log. */
struct LogLine
{
    log4cplus::LogLevel level;
    QString text;
    QString function;
    QString file;
};

/** Collects what is written to the logger "Ble" while it lives; nothing reaches other appenders meanwhile. */
class LogCapture
{
public:
    /** @param level  the level to switch the logger to; it gets its former one back afterwards */
    explicit LogCapture(log4cplus::LogLevel level = log4cplus::TRACE_LOG_LEVEL);
    ~LogCapture();
    Q_DISABLE_COPY(LogCapture)

    /** All lines so far, in order. */
    const QVector<LogLine>& lines() const;

    /** The texts of the lines at a level, in order. */
    QStringList texts(log4cplus::LogLevel level) const;

    void clear();

private:
    class Appender;

    log4cplus::LogLevel m_formerLevel;
    bool m_formerAdditivity;
    log4cplus::helpers::SharedObjectPtr<log4cplus::Appender> m_appender;
    Appender* m_lines;
};
