#pragma once

#include "PlimCoreExport.h"

#include <log4cplus/logger.h>

#include <sstream>

namespace plim {

/**
 * One line for a logger, for the macros of plimlog.h; only made if the level is enabled.
 * What all log statements have in common is in here once. Its functions are marked as cold, so compilers keep
 * log statements away from the code around them and make them small.
 */
class PLIM_CORE_EXPORT LogLine
{
public:
    /** The texts are kept as pointers, and have to live as long as the line. */
    [[gnu::cold]] LogLine(const log4cplus::Logger& logger, log4cplus::LogLevel level, const char* function,
                          const char* file, int number);
    [[gnu::cold]] ~LogLine();
    LogLine(const LogLine&) = delete;
    LogLine& operator=(const LogLine&) = delete;

    /** Begins an empty text. */
    [[gnu::cold]] std::ostream& begin();

    /** Begins the text with "Enter ", the function's name and ": ". */
    [[gnu::cold]] std::ostream& enter();

    /** Hands the line to the logger. */
    [[gnu::cold]] void write() const;

private:
    log4cplus::Logger m_logger;
    log4cplus::LogLevel m_level;
    const char* m_function;
    const char* m_file;
    int m_number;
    std::ostringstream m_text;
};

} // namespace plim
