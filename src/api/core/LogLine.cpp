#include "LogLine.h"

#include "plim.h"

namespace plim {

LogLine::LogLine(const log4cplus::Logger& logger, log4cplus::LogLevel level, const char* function,
                 const char* file, int number)
    : m_logger(logger), m_level(level), m_function(function), m_file(file), m_number(number)
{
}

LogLine::~LogLine() = default;

std::ostream& LogLine::begin()
{
    return m_text;
}

std::ostream& LogLine::enter()
{
    return m_text << "Enter " << dbglog_scopedFunction(m_function, m_logger.getName()) << ": ";
}

void LogLine::write() const
{
    m_logger.forcedLog(m_level, m_text.str(), m_file, m_number, m_function);
}

} // namespace plim
