#pragma once

#include "plim.h"

#include <log4cplus/logger.h>

#include <sstream>

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
 * @param function  the function's full signature
 * @param text      what follows "stream <<"
 */
#define PLIM_LOG(logger, level, function, text)                                                              \
    do {                                                                                                     \
        if ((logger).isEnabledFor(log4cplus::level##_LOG_LEVEL)) {                                           \
            std::ostringstream plimLogLine_;                                                                 \
            plimLogLine_ << text;                                                                            \
            (logger).forcedLog(log4cplus::level##_LOG_LEVEL, plimLogLine_.str(), __FILE__, __LINE__,         \
                               function);                                                                    \
        }                                                                                                    \
    } while (false)

/** The line that a function logs when it begins: "Enter ", its name, ": " and the text of its arguments. */
#define PLIM_LOG_ENTER(logger, level, signature, arguments)                                                  \
    PLIM_LOG(logger, level, signature,                                                                       \
             "Enter " << dbglog_scopedFunction(signature, (logger).getName()) << ": " << arguments)
