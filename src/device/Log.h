#pragma once
// One category of the log, named after the class that writes to it. Nothing is shown until log4cpp has an appender; the
// Python module adds one by logErrorsToStandardError().

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

/// From now on errors and worse, of all categories, appear on standard error. Further calls do nothing.
void logErrorsToStandardError();

} // namespace device
