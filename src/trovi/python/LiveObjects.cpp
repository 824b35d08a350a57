#include "trovi/python/LiveObjects.h"

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <unistd.h>
#include <utility>
#include <vector>

#include "trovi/python/GilRelease.h"
#include "util/Mutex.h"

namespace trovi::python {
namespace {

// Stopping an object and destroying it exclude each other; both are done with the interpreter lock released.
struct Life {
    util::Mutex mutex;
    bool over VORNA_GUARDED_BY(mutex) = false;
};

struct Entry {
    void* object;
    pid_t pid;
    std::function<void()> stop;
    std::shared_ptr<Life> life;
};

// Never destroyed: Python may free its last objects after static destruction has begun.
std::vector<Entry>& entries()
{
    static auto* const list = new std::vector<Entry>;
    return *list;
}

} // namespace

void LiveObjects::remember(void* object, std::function<void()> stop)
{
    entries().push_back({object, ::getpid(), std::move(stop), std::make_shared<Life>()});
}

bool LiveObjects::forget(void* object)
{
    const auto found =
        std::find_if(entries().begin(), entries().end(), [&](const Entry& e) { return e.object == object; });
    if (found == entries().end())
        return true;
    const bool ours = found->pid == ::getpid();
    const std::shared_ptr<Life> life = found->life;
    entries().erase(found);
    if (ours) {
        const GilRelease release;
        const util::Lock lock(life->mutex);
        life->over = true;
    }
    return ours;
}

void LiveObjects::requireOwnProcess(const void* object)
{
    for (const Entry& entry : entries())
        if (entry.object == object && entry.pid != ::getpid())
            throw std::runtime_error(
                "This object belongs to the process that made it; this process was forked off that "
                "one and must make its own.");
}

void LiveObjects::stopAll()
{
    // by index and from a copy: while the lock is released, other threads may still make or free objects
    for (std::size_t i = entries().size(); i-- > 0;) {
        if (i >= entries().size() || entries()[i].pid != ::getpid())
            continue;
        const Entry entry = entries()[i];
        const GilRelease release;
        const util::Lock lock(entry.life->mutex);
        if (!entry.life->over)
            entry.stop();
    }
}

} // namespace trovi::python
