#pragma once
// One category of the log, named after the class that writes to it. Nothing is written anywhere until somebody gives
// log4cpp an appender, as the Python module does by logErrorsToStandardError().

#include <string>

namespace log4cpp {
class Category;
}

namespace device {

/// Threads: thread-safe, construction included.
class Log {
public:
    explicit Log(const std::string& category);

    void debug(const std::string& text) const;
    void error(const std::string& text) const;
    void fatal(const std::string& text) const;

private:
    log4cpp::Category& category; // lives until the process exits
};

/// Shows what is logged as an error or worse, of all categories, on standard error. Does nothing a second time.
void logErrorsToStandardError();

} // namespace device
