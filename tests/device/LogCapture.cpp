#include "LogCapture.h"

#include <log4cpp/AppenderSkeleton.hh>
#include <log4cpp/Category.hh>
#include <log4cpp/LoggingEvent.hh>
#include <log4cpp/Priority.hh>

class LogCapture::Appender : public log4cpp::AppenderSkeleton {
public:
    explicit Appender(LogCapture& owner) : AppenderSkeleton("capture"), capture(owner) {}
    void close() override {}
    bool requiresLayout() const override { return false; }
    void setLayout(log4cpp::Layout*) override {}

protected:
    void _append(const log4cpp::LoggingEvent& event) override
    {
        const std::lock_guard lock(capture.mutex);
        capture.captured.push_back(
            {event.categoryName, log4cpp::Priority::getPriorityName(event.priority), event.message});
    }

private:
    LogCapture& capture;
};

LogCapture::LogCapture() : appender(new Appender(*this))
{
    log4cpp::Category::getRoot().addAppender(appender);
    log4cpp::Category::getRoot().setPriority(log4cpp::Priority::DEBUG);
}

LogCapture::~LogCapture()
{
    log4cpp::Category::getRoot().setPriority(log4cpp::Priority::INFO); // as it was
    log4cpp::Category::getRoot().removeAppender(appender);
}

std::vector<LogCapture::Line> LogCapture::lines() const
{
    const std::lock_guard lock(mutex);
    return captured;
}

std::vector<std::string> LogCapture::texts() const
{
    std::vector<std::string> texts;
    for (const Line& line : lines())
        texts.push_back(line.text);
    return texts;
}

void LogCapture::clear()
{
    const std::lock_guard lock(mutex);
    captured.clear();
}
