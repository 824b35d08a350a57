#include "trovi/MessageChannel.h"

#include <utility>

namespace trovi {

// Holds the turn to the end of the scope. A method of one node may call another, so a thread may hold the turns of
// several channels; it waits for none while it holds one. Not a semaphore: that of g++ 12 loses wakes.
class VORNA_SCOPED_CAPABILITY MessageChannel::Turn {
public:
    explicit Turn(MessageChannel& channel) VORNA_ACQUIRE(channel.turn) : channel(channel)
    {
        channel.turn.lock();
        setHolder(std::this_thread::get_id());
    }
    /// Takes over a turn that the caller has locked.
    Turn(MessageChannel& channel, std::adopt_lock_t) VORNA_REQUIRES(channel.turn) : channel(channel)
    {
        setHolder(std::this_thread::get_id());
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn() VORNA_RELEASE()
    {
        setHolder({});
        channel.turn.unlock();
    }

private:
    void setHolder(std::thread::id thread) { channel.holder.store(thread, std::memory_order_relaxed); }

    MessageChannel& channel;
};

bool MessageChannel::isMyTurn() const { return holder.load(std::memory_order_relaxed) == std::this_thread::get_id(); }

void MessageChannel::handleAll(messages::Message&& message) noexcept
{
    handler->handle(std::move(message));
    for (std::size_t i = 0; i < outbox.size(); ++i) { // it may grow on the way
        messages::Message next = std::move(outbox[i]);
        handler->handle(std::move(next));
    }
    outbox.clear();
}

void MessageChannel::enqueue(messages::Message message)
{
    if (isDetached.load())
        return;
    if (isMyTurn() && waiting == 0) { // what other threads have queued is not overtaken either
        assertMyTurn();
        outbox.push_back(std::move(message));
        return;
    }
    ++waiting;
    Channel::enqueue(std::move(message));
    if (!isDetached.load())
        return;
    // It was detached meanwhile, and the thread that did so may have emptied the queue already.
    messages::Message dropped;
    while (try_dequeue(dropped)) {
    }
}

void MessageChannel::post(messages::Message message)
{
    if (!isMyTurn() && turn.try_lock()) {
        const Turn mine(*this, std::adopt_lock);
        if (handler != nullptr && waiting == 0)
            return handleAll(std::move(message));
    }
    enqueue(std::move(message));
}

bool MessageChannel::isOfThisProcess() const { return process == ::getpid(); }

void MessageChannel::attach(MessageHandler& newHandler)
{
    const Turn mine(*this);
    handler = &newHandler;
}

void MessageChannel::detach()
{
    const Turn mine(*this);
    handler = nullptr;
    isDetached.store(true);
}

void MessageChannel::act(messages::Message&& message)
{
    const Turn mine(*this);
    --waiting; // no other message gets past it: that needs the turn
    handleAll(std::move(message));
}

} // namespace trovi
