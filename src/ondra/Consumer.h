#pragma once
// Base of a class whose own thread reads one channel.

#include <atomic>
#include <cstdint>
#include <thread>
#include <utility>

#include "ondra/Channel.h"

namespace ondra {

/// The derived constructor starts `thread` on poll(); the derived destructor calls stop(), since by the time this base
/// is destroyed enqueuedItem() is gone.
template <class T>
class Consumer {
public:
    explicit Consumer(Channel<T>* channel) : channel(channel) {}
    Consumer(const Consumer&) = delete;
    Consumer& operator=(const Consumer&) = delete;
    virtual ~Consumer() = default;

    virtual void enqueuedItem(T&& item) = 0;

protected:
    /// The thread's body. An exception out of enqueuedItem() ends the process.
    void poll() noexcept
    {
        constexpr std::int64_t turnUs = 1000; // so that `running` is checked regularly
        T item;
        while (running.load())
            if (channel->wait_dequeue_timed(item, turnUs))
                enqueuedItem(std::move(item));
    }

    /// Ends and joins the thread; what is left in the channel stays there. Does nothing a second time.
    void stop()
    {
        running.store(false);
        if (thread.joinable())
            thread.join();
    }

    Channel<T>* channel; // not owned
    std::thread thread;
    std::atomic<bool> running = true;
};

} // namespace ondra
