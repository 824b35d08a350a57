#include "trovi/MessageChannel.h"

#include <utility>

namespace trovi {

// Holds the turn to the end of the scope. A method of one node may call another, so a thread may hold the turns of
// several channels; it waits for none while it holds one. Not a semaphore: that of g++ 12 loses wakes.
class MessageChannel::Turn {
public:
    explicit Turn(MessageChannel& channel) : Turn(channel, std::unique_lock(channel.turn_)) {}
    Turn(MessageChannel& channel, std::try_to_lock_t how) : Turn(channel, std::unique_lock(channel.turn_, how)) {}
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn()
    {
        if (lock)
            channel.holder_.store({}, std::memory_order_relaxed);
    }

    explicit operator bool() const { return lock.owns_lock(); }

private:
    Turn(MessageChannel& channel, std::unique_lock<std::mutex> taken) : channel(channel), lock(std::move(taken))
    {
        if (lock)
            channel.holder_.store(std::this_thread::get_id(), std::memory_order_relaxed);
    }

    MessageChannel& channel;
    std::unique_lock<std::mutex> lock;
};

bool MessageChannel::isMyTurn() const { return holder_.load(std::memory_order_relaxed) == std::this_thread::get_id(); }

void MessageChannel::handleAll(messages::Message&& message) noexcept
{
    handler_->handle(std::move(message));
    for (std::size_t i = 0; i < outbox_.size(); ++i) { // it may grow on the way
        messages::Message next = std::move(outbox_[i]);
        handler_->handle(std::move(next));
    }
    outbox_.clear();
}

void MessageChannel::enqueue(messages::Message message)
{
    if (isMyTurn() && waiting_ == 0) { // what other threads have queued is not overtaken either
        outbox_.push_back(std::move(message));
        return;
    }
    ++waiting_;
    Channel::enqueue(std::move(message));
}

void MessageChannel::post(messages::Message message)
{
    if (!isMyTurn()) {
        const Turn turn(*this, std::try_to_lock);
        if (turn && handler_ != nullptr && waiting_ == 0)
            return handleAll(std::move(message));
    }
    enqueue(std::move(message));
}

bool MessageChannel::isOfThisProcess() const { return process_ == ::getpid(); }

void MessageChannel::attach(MessageHandler& handler)
{
    const Turn turn(*this);
    handler_ = &handler;
}

void MessageChannel::detach()
{
    const Turn turn(*this);
    handler_ = nullptr;
}

void MessageChannel::act(messages::Message&& message)
{
    const Turn turn(*this);
    --waiting_; // nobody else gets past it: that needs the turn
    handleAll(std::move(message));
}

} // namespace trovi
