// zmq_poller_* over the library's stable zmq_poll, for a library that was built without its draft interface. Compiled
// only where linking against zmq_poller_new fails. It has what zmq::active_poller_t calls.

#include <algorithm>
#include <cerrno>
#include <new>
#include <vector>

#include <zmq.h>

namespace {

struct Poller {
    std::vector<zmq_pollitem_t> items;
    std::vector<void*> userData; // one for each item

    auto find(void* socket)
    {
        return std::find_if(items.begin(), items.end(), [&](const auto& item) { return item.socket == socket; });
    }
};

int fail(int error)
{
    errno = error;
    return -1;
}

} // namespace

extern "C" {

void* zmq_poller_new()
{
    auto* poller = new (std::nothrow) Poller;
    if (poller == nullptr)
        errno = ENOMEM;
    return poller;
}

int zmq_poller_destroy(void** handle)
{
    if (handle == nullptr || *handle == nullptr)
        return fail(EFAULT);
    delete static_cast<Poller*>(*handle);
    *handle = nullptr;
    return 0;
}

int zmq_poller_size(void* handle)
{
    return handle == nullptr ? fail(EFAULT) : static_cast<int>(static_cast<Poller*>(handle)->items.size());
}

int zmq_poller_add(void* handle, void* socket, void* userData, short events)
{
    if (handle == nullptr)
        return fail(EFAULT);
    if (socket == nullptr)
        return fail(ENOTSOCK);
    auto& poller = *static_cast<Poller*>(handle);
    if (poller.find(socket) != poller.items.end())
        return fail(EINVAL);
    try {
        poller.userData.reserve(poller.userData.size() + 1); // so that the second push_back cannot fail
        poller.items.push_back({socket, 0, events, 0});
        poller.userData.push_back(userData);
    } catch (const std::bad_alloc&) {
        return fail(ENOMEM);
    }
    return 0;
}

int zmq_poller_modify(void* handle, void* socket, short events)
{
    if (handle == nullptr)
        return fail(EFAULT);
    auto& poller = *static_cast<Poller*>(handle);
    const auto item = poller.find(socket);
    if (item == poller.items.end())
        return fail(EINVAL);
    item->events = events;
    return 0;
}

int zmq_poller_remove(void* handle, void* socket)
{
    if (handle == nullptr)
        return fail(EFAULT);
    auto& poller = *static_cast<Poller*>(handle);
    const auto item = poller.find(socket);
    if (item == poller.items.end())
        return fail(EINVAL);
    poller.userData.erase(poller.userData.begin() + (item - poller.items.begin()));
    poller.items.erase(item);
    return 0;
}

// The number of events; -1 with EAGAIN when the time ran out.
int zmq_poller_wait_all(void* handle, zmq_poller_event_t* events, int capacity, long timeout)
{
    if (handle == nullptr || (events == nullptr && capacity > 0))
        return fail(EFAULT);
    if (capacity < 0)
        return fail(EINVAL);
    auto& poller = *static_cast<Poller*>(handle);
    if (poller.items.empty() && timeout < 0)
        return fail(EFAULT); // it would never return
    const int ready = zmq_poll(poller.items.data(), static_cast<int>(poller.items.size()), timeout);
    if (ready < 0)
        return -1;
    if (ready == 0)
        return fail(EAGAIN);
    int count = 0;
    for (std::size_t i = 0; i < poller.items.size() && count < capacity; ++i)
        if (poller.items[i].revents != 0)
            events[count++] = {poller.items[i].socket, poller.items[i].fd, poller.userData[i], poller.items[i].revents};
    return count;
}

} // extern "C"
