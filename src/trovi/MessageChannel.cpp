#include "trovi/MessageChannel.h"

namespace trovi {
namespace {

thread_local const MessageChannel* turnOfThisThread = nullptr;

} // namespace

// Holds the turn, which the maker has taken, to the end of the scope.
class MessageChannel::Turn {
public:
    explicit Turn(MessageChannel& channel) : channel(channel), outer(std::exchange(turnOfThisThread, &channel)) {}
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;
    ~Turn()
    {
        turnOfThisThread = outer;
        channel.free_.release();
    }

private:
    MessageChannel& channel;
    const MessageChannel* outer; // a method of one node may call another
};

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
    if (turnOfThisThread == this) {
        outbox_.push_back(std::move(message));
        return;
    }
    ++waiting_;
    Channel::enqueue(std::move(message));
}

void MessageChannel::post(messages::Message message)
{
    if (turnOfThisThread != this && free_.try_acquire()) {
        const Turn turn(*this);
        if (handler_ != nullptr && waiting_ == 0)
            return handleAll(std::move(message));
    }
    enqueue(std::move(message));
}

void MessageChannel::attach(MessageHandler& handler)
{
    free_.acquire();
    const Turn turn(*this);
    handler_ = &handler;
}

void MessageChannel::detach()
{
    free_.acquire();
    const Turn turn(*this);
    handler_ = nullptr;
}

void MessageChannel::act(messages::Message&& message)
{
    free_.acquire();
    const Turn turn(*this);
    handleAll(std::move(message));
    --waiting_;
}

} // namespace trovi
