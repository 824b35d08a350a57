#include "trovi/python/LiveObjects.h"

#include <algorithm>
#include <unistd.h>
#include <utility>
#include <vector>

#include <pybind11/pybind11.h>

namespace trovi::python {
namespace {

struct Entry {
    void* object;
    pid_t pid;
    std::function<void()> stop;
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
    entries().push_back({object, ::getpid(), std::move(stop)});
}

bool LiveObjects::forget(void* object)
{
    const auto found =
        std::find_if(entries().begin(), entries().end(), [&](const Entry& e) { return e.object == object; });
    if (found == entries().end())
        return true;
    const bool ours = found->pid == ::getpid();
    entries().erase(found);
    return ours;
}

void LiveObjects::stopAll()
{
    // by index and from a copy: while the lock is released, other threads may still make or free objects
    for (std::size_t i = entries().size(); i-- > 0;) {
        if (i >= entries().size() || entries()[i].pid != ::getpid())
            continue;
        const std::function<void()> stop = entries()[i].stop;
        const pybind11::gil_scoped_release release;
        stop();
    }
}

} // namespace trovi::python
