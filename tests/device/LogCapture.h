#pragma once
// Keeps what is logged while it lives, in order.

#include <mutex>
#include <string>
#include <vector>

class LogCapture {
public:
    struct Line {
        std::string category, level, text;
        friend bool operator==(const Line&, const Line&) = default;
    };

    LogCapture();
    ~LogCapture();

    std::vector<Line> lines() const;
    std::vector<std::string> texts() const;
    void clear();

private:
    class Appender;
    mutable std::mutex mutex;
    std::vector<Line> captured;
    Appender* appender; // owned by log4cpp's root category
};
