#include "device/Log.h"

#include <iostream>

#include <log4cpp/Category.hh>
#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/PatternLayout.hh>

#include "util/Mutex.h"

namespace device {
namespace {

log4cpp::Category& categoryNamed(const std::string& name)
{
    // log4cpp creates its root on first use, without a lock
    static util::Mutex mutex;
    const util::Lock lock(mutex);
    return log4cpp::Category::getInstance(name);
}

} // namespace

Log::Log(const std::string& categoryName) : category(categoryNamed(categoryName)) {}

void Log::debug(const std::string& text) const { category.debug(text); }
void Log::error(const std::string& text) const { category.error(text); }
void Log::fatal(const std::string& text) const { category.fatal(text); }

void logErrorsToStandardError()
{
    [[maybe_unused]] static const bool done = [] {
        auto* const layout = new log4cpp::PatternLayout; // the appender owns it, and the category the appender
        layout->setConversionPattern("%d %p %c: %m%n");
        auto* const appender = new log4cpp::OstreamAppender("standard error", &std::cerr);
        appender->setLayout(layout);
        appender->setThreshold(log4cpp::Priority::ERROR);
        log4cpp::Category::getRoot().addAppender(appender);
        return true;
    }();
}

} // namespace device
