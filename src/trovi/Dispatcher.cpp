#include "trovi/Dispatcher.h"

#include <optional>
#include <stdexcept>

#include "util/SignalBlock.h"

namespace trovi {

namespace detail {

void throwTupleIndex() { throw std::runtime_error("Tuple index out of range!"); }

} // namespace detail

std::future<std::vector<ElementDescription>> getStoreContent(MessageChannel& channel, std::uint64_t storeId)
{
    auto [future, callback] = RPCFuture<std::vector<ElementDescription>>();
    const messages::Header header{0, {storeId, StoreRef::invalidId}, StoreCommand::report, 0};
    channel.post(messages::Call{header, std::move(callback), {}});
    return std::move(future);
}

Dispatcher::Dispatcher(std::uint64_t dispatcherId, MessageChannel& channel, MessageForwarderInterface* forwarder,
                       Store* store)
    : Consumer(&channel), channel_(channel), dispatcherId_(dispatcherId), forwarder_(forwarder), store_(store)
{
    if (store == nullptr || store->id() != dispatcherId)
        throw std::runtime_error("Dispatcher cannot be initialized with store == nullptr or storeId != dispatcherId!");
    channel_.attach(*this);
    const util::SignalBlock block;
    try {
        thread = std::thread([this]() noexcept { poll(); });
    } catch (...) {
        channel_.detach(); // a receiver may post already
        throw;
    }
}

void Dispatcher::stop()
{
    Consumer::stop();
    channel_.detach();
    // Callbacks are destroyed outside the mutex: what they hold may be anything.
    std::unordered_map<std::string, messages::Callback> released;
    {
        const std::lock_guard lock(mutex_);
        released.swap(callbacks_);
    }
    messages::Message dropped;
    while (channel_.try_dequeue(dropped)) {
    }
}

void Dispatcher::setOnResponseMessageCommandCallback(StoreCommand command, messages::Callback function)
{
    const std::lock_guard lock(mutex_);
    callbacks_[std::string(commandName(command))] = std::move(function);
}

void Dispatcher::handle(messages::Message&& message)
{
    std::visit([this](auto& alternative) { actOn(alternative); }, message);
}

template <class M>
void Dispatcher::forward(M& message)
{
    const std::uint64_t destination = message.header.ref.storeId;
    message.header.destination = destination;
    forwarder_->forward(destination, std::move(message));
}

template <class M>
void Dispatcher::registerCall(M& message)
{
    const std::string text = uuid{0, nextUuid_++}.str();
    if (!message.callback)
        return;
    ByteWriter writer(message.buffer);
    encode(writer, dispatcherId_);
    encode(writer, text);
    const std::lock_guard lock(mutex_);
    callbacks_[text] = std::exchange(message.callback, nullptr);
}

template <class M>
void Dispatcher::actOn(M& message)
{
    if constexpr (std::is_same_v<M, messages::Response>) {
        if (message.destination == dispatcherId_) {
            response(std::move(message));
        } else {
            const std::uint64_t destination = message.destination;
            forwarder_->forward(destination, std::move(message));
        }
    } else {
        constexpr bool isCall = std::is_same_v<M, messages::Call>;
        if constexpr (isCall || std::is_same_v<M, messages::Internal>)
            registerCall(message);
        if (message.header.ref.storeId != dispatcherId_)
            forward(message);
        else if (message.header.command != StoreCommand::report)
            store_->receiveMsg(message.header, std::move(message.buffer));
        else if constexpr (isCall)
            report(std::move(message));
    }
}

void Dispatcher::report(messages::Call&& call)
{
    ByteStream stream(std::move(call.buffer));
    const auto [destination, uuidText] = deserializeDestinationAndUUID(stream);
    store_->addObserverNode(destination);
    channel_.enqueue(ResponseMessage(destination, uuidText, store_->report()));
}

void Dispatcher::response(messages::Response&& message)
{
    ByteStream stream(std::move(message.buffer));
    const auto key = deserializeElement<std::string>(stream);
    std::optional<messages::Callback> callback;
    {
        const std::lock_guard lock(mutex_);
        if (const auto pending = callbacks_.find(key); pending != callbacks_.end()) {
            callback = std::move(pending->second);
            callbacks_.erase(pending);
        } else if (const auto handler = callbacks_.find(std::string(commandName(message.command)));
                   handler != callbacks_.end()) {
            callback = handler->second; // stays in the table
        }
    }
    if (callback)
        (*callback)(stream);
}

} // namespace trovi
