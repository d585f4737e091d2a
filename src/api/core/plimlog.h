#pragma once

#include "LogLine.h"
#include "plim.h"

#include <log4cplus/logger.h>

namespace plim {

/** The logger "Ble", to which all of the library writes. */
inline const log4cplus::Logger& bleLogger()
{
    static const log4cplus::Logger logger = log4cplus::Logger::getInstance("Ble");
    return logger;
}

} // namespace plim

/**
 * Writes one log line if the level is enabled; otherwise the text is not evaluated.
 * Every statement has a stream of its own. The macros of log4cplus share one stream per thread, and an
 * argument that writes a log line itself would clear it.
 *
 * @param level     TRACE, DEBUG, INFO, WARN, ERROR or FATAL
 * @param function  the function's full signature, a text that lives as long as the program
 * @param text      what follows "stream <<"
 */
#define PLIM_LOG(logger, level, function, text)                                                              \
    PLIM_LOG_LINE(logger, log4cplus::level##_LOG_LEVEL, function, begin, text)

/** The line that a function logs when it begins: "Enter ", its name, ": " and the text of its arguments. */
#define PLIM_LOG_ENTER(logger, level, signature, arguments)                                                  \
    PLIM_LOG_LINE(logger, log4cplus::level##_LOG_LEVEL, signature, enter, arguments)

/** What both have in common; how the text begins is a function of plim::LogLine. */
#define PLIM_LOG_LINE(logger, level, function, beginning, text)                                              \
    do {                                                                                                     \
        if ((logger).isEnabledFor(level)) {                                                                  \
            plim::LogLine plimLogLine_(logger, level, function, __FILE__, __LINE__);                         \
            plimLogLine_.beginning() << text;                                                                \
            plimLogLine_.write();                                                                            \
        }                                                                                                    \
    } while (false)
