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
 * Writes one log line if the level is enabled; nothing of the text is evaluated otherwise.
 * Every statement has a stream of its own: log4cplus's macros share one per thread, which an argument that
 * logs itself would clear.
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

/** The line with which an operation opens: "Enter ", the operation, ": " and its arguments' text. */
#define PLIM_LOG_ENTER(logger, level, signature, arguments)                                                  \
    PLIM_LOG(logger, level, signature,                                                                       \
             "Enter " << dbglog_scopedFunction(signature, (logger).getName()) << ": " << arguments)
