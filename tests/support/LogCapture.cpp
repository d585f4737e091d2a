#include "LogCapture.h"

#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

class LogCapture::Appender : public log4cplus::Appender
{
public:
    ~Appender() override { destructorImpl(); }
    void close() override {}

    QVector<LogLine> lines;

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override
    {
        lines.append({event.getLogLevel(), QString::fromStdString(event.getMessage()),
                      QString::fromStdString(event.getFunction()), QString::fromStdString(event.getFile())});
    }
};

LogCapture::LogCapture(log4cplus::LogLevel level) : m_lines(new Appender)
{
    auto logger = log4cplus::Logger::getInstance("Ble");
    m_formerLevel = logger.getLogLevel();
    m_formerAdditivity = logger.getAdditivity();
    m_appender = log4cplus::SharedAppenderPtr(m_lines);
    logger.addAppender(m_appender);
    logger.setAdditivity(false);
    logger.setLogLevel(level);
}

LogCapture::~LogCapture()
{
    auto logger = log4cplus::Logger::getInstance("Ble");
    logger.removeAppender(m_appender);
    logger.setAdditivity(m_formerAdditivity);
    logger.setLogLevel(m_formerLevel);
}

const QVector<LogLine>& LogCapture::lines() const
{
    return m_lines->lines;
}

QStringList LogCapture::texts(log4cplus::LogLevel level) const
{
    QStringList texts;
    for (const LogLine& line : m_lines->lines) {
        if (line.level == level) {
            texts << line.text;
        }
    }
    return texts;
}

void LogCapture::clear()
{
    m_lines->lines.clear();
}
