#include "device/Log.h"

#include <mutex>

#include <log4cpp/Category.hh>

namespace device {
namespace {

log4cpp::Category& categoryNamed(const std::string& name)
{
    // log4cpp makes its root unlocked when first asked
    static std::mutex mutex;
    const std::lock_guard lock(mutex);
    return log4cpp::Category::getInstance(name);
}

} // namespace

Log::Log(const std::string& categoryName) : category(categoryNamed(categoryName)) {}

void Log::debug(const std::string& text) const { category.debug(text); }
void Log::error(const std::string& text) const { category.error(text); }
void Log::fatal(const std::string& text) const { category.fatal(text); }

} // namespace device
