#include "trovi/Dispatcher.h"

#include <optional>
#include <stdexcept>
#include <type_traits>
#include <utility>

#include "trovi/RPCFuture.h"
#include "util/SignalBlock.h"

namespace trovi {

std::future<std::vector<ElementDescription>> getStoreContent(MessageChannel& channel, std::uint64_t storeId)
{
    auto [future, callback] = RPCFuture<std::vector<ElementDescription>>();
    const messages::Header header{0, {storeId, StoreRef::invalidId}, StoreCommand::report, 0};
    channel.post(messages::Call{header, std::move(callback), {}});
    return std::move(future);
}

Dispatcher::Dispatcher(std::uint64_t dispatcherId, MessageChannel& channel, MessageForwarderInterface* forwarder,
                       Store* store)
    : Consumer(&channel), queue(channel), dispatcherId(dispatcherId), forwarder(forwarder), store(store)
{
    if (store == nullptr || store->id() != dispatcherId)
        throw std::runtime_error("Dispatcher cannot be initialized with store == nullptr or storeId != dispatcherId!");
    queue.attach(*this);
    const util::SignalBlock block;
    try {
        thread = std::thread([this]() noexcept { poll(); });
    } catch (...) {
        queue.detach(); // a receiver may post already
        throw;
    }
}

void Dispatcher::stop()
{
    Consumer::stop();
    queue.detach();
    // Callbacks are destroyed outside the mutex: what they hold may be anything.
    std::unordered_map<std::string, messages::Callback> released;
    {
        const util::Lock lock(mutex);
        released.swap(callbacks);
    }
    messages::Message dropped;
    while (queue.try_dequeue(dropped)) {
    }
}

void Dispatcher::setOnResponseMessageCommandCallback(StoreCommand command, messages::Callback function)
{
    const util::Lock lock(mutex);
    callbacks[std::string(commandName(command))] = std::move(function);
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
    forwarder->forward(destination, std::move(message));
}

template <class M>
void Dispatcher::registerCall(M& message)
{
    const std::string text = uuid{0, nextUuid++}.str();
    if (!message.callback)
        return;
    ByteWriter writer(message.buffer);
    encode(writer, dispatcherId);
    encode(writer, text);
    const util::Lock lock(mutex);
    callbacks[text] = std::exchange(message.callback, nullptr);
}

template <class M>
void Dispatcher::actOn(M& message)
{
    if constexpr (std::is_same_v<M, messages::Response>) {
        if (message.destination == dispatcherId) {
            response(std::move(message));
        } else {
            const std::uint64_t destination = message.destination;
            forwarder->forward(destination, std::move(message));
        }
    } else {
        constexpr bool isCall = std::is_same_v<M, messages::Call>;
        if constexpr (isCall || std::is_same_v<M, messages::Internal>)
            registerCall(message);
        if (message.header.ref.storeId != dispatcherId)
            forward(message);
        else if (message.header.command != StoreCommand::report)
            store->receiveMsg(message.header, std::move(message.buffer));
        else if constexpr (isCall)
            report(std::move(message));
    }
}

void Dispatcher::report(messages::Call&& call)
{
    ByteStream stream(std::move(call.buffer));
    const auto [destination, uuidText] = deserializeDestinationAndUUID(stream);
    store->addObserverNode(destination);
    queue.enqueue(ResponseMessage(destination, uuidText, store->report()));
}

void Dispatcher::response(messages::Response&& message)
{
    ByteStream stream(std::move(message.buffer));
    const auto key = deserializeElement<std::string>(stream);
    std::optional<messages::Callback> callback;
    {
        const util::Lock lock(mutex);
        if (const auto pending = callbacks.find(key); pending != callbacks.end()) {
            callback = std::move(pending->second);
            callbacks.erase(pending);
        } else if (const auto handler = callbacks.find(std::string(commandName(message.command)));
                   handler != callbacks.end()) {
            callback = handler->second; // stays in the table
        }
    }
    if (callback)
        (*callback)(stream);
}

} // namespace trovi
