#pragma once
// The thread of a node that moves messages, and both halves of a remote call: running a function that a message names,
// and waiting for the answer.

#include <array>
#include <chrono>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ondra/Consumer.h"
#include "trovi/Messages.h"
#include "trovi/Store.h"

namespace trovi {

// ---- running calls -----------------------------------------------------------------------------------------------

namespace detail {

/// A function whose result is a reference to a described class leads on to that object; its answer holds no result.
template <class R>
inline constexpr bool leadsToObject = false;
template <class U>
inline constexpr bool leadsToObject<U&> = !std::is_const_v<U> && isReflected<U>;

template <class T, std::size_t I>
inline constexpr auto& functionAt = std::get<I>(MetaFunctionHolder<T>::memberFuncs);
template <class T, std::size_t I>
using SignatureAt = SignatureTraits<typename std::remove_cvref_t<decltype(functionAt<T, I>)>::Pointer>;

template <class... Args>
void readArguments(std::istream& stream, std::tuple<Args...>& arguments)
{
    ByteReader reader(stream);
    std::apply([&](auto&... argument) { (decode(reader, argument), ...); }, arguments);
}

template <class... Args>
std::tuple<Args...> tupleOf(FunctionParams<Args...>);

/// Calls function I of T with `arguments`, each handed over as it is declared.
template <class T, std::size_t I, class Tuple, class... Declared>
decltype(auto) callWith(T& object, Tuple& arguments, FunctionParams<Declared...>)
{
    return [&]<std::size_t... A>(std::index_sequence<A...>)->decltype(auto)
    {
        return (object.*(functionAt<T, I>.function))(static_cast<Declared&&>(std::get<A>(arguments))...);
    }
    (std::index_sequence_for<Declared...>{});
}

template <class T, std::size_t I>
struct Invocation {
    using Signature = SignatureAt<T, I>;
    using Return = typename Signature::Return;

    decltype(tupleOf(typename Signature::Params{})) arguments{};

    explicit Invocation(std::istream& stream) { readArguments(stream, arguments); }
    decltype(auto) operator()(T& object) { return callWith<T, I>(object, arguments, typename Signature::Arguments{}); }
};

[[noreturn]] void throwTupleIndex();

/// Calls `steps[id]`.
/// @throws std::runtime_error "Tuple index out of range!"
template <class Step, std::size_t N, class T, class Channel>
void takeStep(const std::array<Step, N>& steps, std::uint64_t id, T& object, Channel& channel, std::istream& stream)
{
    if (id >= N)
        throwTupleIndex();
    if constexpr (N > 0)
        steps[static_cast<std::size_t>(id)](object, channel, stream);
}

} // namespace detail

/// Runs function I of T's description: reads the arguments and the return address, calls, and enqueues the answer.
template <class T, class Channel, std::size_t I>
void methodInvocator(T& object, Channel& channel, std::istream& stream)
{
    detail::Invocation<T, I> invocation(stream);
    const auto [destination, uuidText] = deserializeDestinationAndUUID(stream);
    using Return = typename detail::Invocation<T, I>::Return;
    if constexpr (std::is_void_v<Return> || detail::leadsToObject<Return>) {
        invocation(object);
        channel.enqueue(ResponseMessage(destination, uuidText));
    } else {
        channel.enqueue(ResponseMessage(destination, uuidText, invocation(object)));
    }
}

/// T's functions as they are called by messages; the index is the function's number.
template <class T, class Channel = MessageChannel>
struct MethodInvokerHolder {
    using Entry = void (*)(T&, Channel&, std::istream&);

    static constexpr std::array<Entry, functionCount<T>> MethodInvokerHolders =
        []<std::size_t... I>(std::index_sequence<I...>)
    {
        return std::array<Entry, functionCount<T>>{&methodInvocator<T, Channel, I>...};
    }
    (std::make_index_sequence<functionCount<T>>{});
};

/// Walking a chain: from an object to the object that a function or a member of it leads to.
namespace invoker {

template <class T, class Channel>
void internal(T& object, Channel& channel, std::uint64_t id, std::istream& stream);

/// Acts on a message for `object`, which is in a store or was reached by a chain. Commands other than call and
/// internal, and numbers past the last function, are dropped.
template <class T, class Channel>
void receive(T& object, Channel& channel, const messages::Header& header, std::istream& stream)
{
    if (header.command == StoreCommand::call) {
        constexpr auto& entries = MethodInvokerHolder<T, Channel>::MethodInvokerHolders;
        if (header.id < entries.size())
            entries[static_cast<std::size_t>(header.id)](object, channel, stream);
    } else if (header.command == StoreCommand::internal) {
        internal(object, channel, header.id, stream);
    }
}

/// One step through function I. A function that leads to no object is not run, and nothing answers.
template <std::size_t I, class T, class Channel>
void reference(T& object, Channel& channel, std::istream& stream)
{
    detail::Invocation<T, I> invocation(stream);
    messages::NestedMessage nested = messages::deserializeInternal(stream);
    if constexpr (detail::leadsToObject<typename detail::Invocation<T, I>::Return>) {
        auto& next = invocation(object);
        ByteStream nestedStream(std::move(nested.buffer));
        receive(next, channel, nested.header, nestedStream);
    }
}

/// One step through data member I. A member of no described class leads nowhere.
template <std::size_t I, class T, class Channel>
void member(T& object, Channel& channel, std::istream& stream)
{
    auto& next = object.*(std::get<I>(MetaHolder<T>::members).field);
    messages::NestedMessage nested = messages::deserializeInternal(stream);
    if constexpr (isReflected<std::remove_cvref_t<decltype(next)>>) {
        ByteStream nestedStream(std::move(nested.buffer));
        receive(next, channel, nested.header, nestedStream);
    }
}

/// Acts on the content of an Internal with number `id`: reads its type and goes through the function or the member.
/// @throws std::runtime_error "Tuple index out of range!"
template <class T, class Channel>
void internal(T& object, Channel& channel, std::uint64_t id, std::istream& stream)
{
    using Step = void (*)(T&, Channel&, std::istream&);
    if (deserializeElement<messages::InternalType>(stream) == messages::InternalType::function) {
        static constexpr auto steps = []<std::size_t... I>(std::index_sequence<I...>)
        {
            return std::array<Step, sizeof...(I)>{&reference<I, T, Channel>...};
        }
        (std::make_index_sequence<functionCount<T>>{});
        detail::takeStep(steps, id, object, channel, stream);
    } else {
        static constexpr auto steps = []<std::size_t... I>(std::index_sequence<I...>)
        {
            return std::array<Step, sizeof...(I)>{&member<I, T, Channel>...};
        }
        (std::make_index_sequence<memberCount<T>>{});
        detail::takeStep(steps, id, object, channel, stream);
    }
}

} // namespace invoker

/// A store's object of class T, owned or borrowed.
template <class T>
class StoreHolder final : public Storable {
public:
    StoreHolder(std::unique_ptr<T> object, MessageChannel* channel, std::string name)
        : owned_(std::move(object)), object_(owned_.get()), channel_(channel), name_(std::move(name))
    {}
    StoreHolder(T& borrowed, MessageChannel* channel, std::string name)
        : object_(&borrowed), channel_(channel), name_(std::move(name))
    {}

    T& object() { return *object_; }
    /// Gives the object up; after that the holder may only be destroyed. Null for a borrowed object.
    std::unique_ptr<T> release() { return std::move(owned_); }

    void receiveMsg(messages::Header header, Bytes&& buffer) override
    {
        ByteStream stream = sstreamFromBuffer(std::move(buffer));
        invoker::receive(*object_, *channel_, header, stream);
    }
    std::string getHeldTypeName() const override { return std::string(typeName<T>()); }
    std::string getHeldName() const override { return name_; }

private:
    std::unique_ptr<T> owned_; // null for a borrowed object
    T* object_;
    MessageChannel* channel_;
    std::string name_;
};

// ---- waiting for answers -----------------------------------------------------------------------------------------

/// A future and the callback that fulfils it with the value read from the answer.
template <class T>
std::pair<std::future<T>, messages::Callback> RPCFuture()
{
    auto promise = std::make_shared<std::promise<T>>();
    auto future = promise->get_future();
    return {std::move(future), [promise = std::move(promise)](std::istream& stream) {
                if constexpr (std::is_void_v<T>)
                    promise->set_value();
                else
                    promise->set_value(deserializeElement<T>(stream));
            }};
}

/// Asks store `storeId` for its content; the asking node becomes its observer. The time-out is the caller's.
std::future<std::vector<ElementDescription>> getStoreContent(MessageChannel& channel, std::uint64_t storeId);

// ---- the dispatcher ----------------------------------------------------------------------------------------------

/// The way out to other nodes.
class MessageForwarderInterface {
public:
    virtual void forward(std::uint64_t destination, messages::Message&& message) = 0;
    virtual ~MessageForwarderInterface() = default;
};

/// Moves the messages of a node: forwards them, runs them on the local store, or completes a pending call.
///
/// Threads: the constructor starts a thread that alone reads the channel. It acts on messages in the channel's turn,
/// and so does a thread that posts one while the node is idle: the forwarder, the store and the callbacks are used by
/// one thread at a time, the turn's holder. An exception of a called method, or of a message that is cut short, ends
/// the process with its text when it leaves the dispatcher's or the receiver's thread. `mutex_` guards the callbacks
/// and is held for no call.
class Dispatcher : private ondra::Consumer<messages::Message>, private MessageHandler {
public:
    /// @throws std::runtime_error "Dispatcher cannot be initialized with store == nullptr or storeId != dispatcherId!"
    Dispatcher(std::uint64_t dispatcherId, MessageChannel& channel, MessageForwarderInterface* forwarder, Store* store);
    ~Dispatcher() override { stop(); }

    std::uint64_t id() const { return dispatcherId_; }

    /// Sets what runs, in the channel's turn, for messages with `command` that answer no pending call.
    /// Threads: thread-safe. A message that is being handled may still see the handler before.
    void setOnResponseMessageCommandCallback(StoreCommand command, messages::Callback function);

    /// Ends and joins the thread, drops what is left in the channel and releases the pending calls: their futures then
    /// hold a broken promise. Does nothing a second time. Not to be called from inside a turn.
    void stop();

private:
    void enqueuedItem(messages::Message&& message) override { channel_.act(std::move(message)); }
    void handle(messages::Message&& message) override;
    template <class M>
    void actOn(M& message); // which it takes apart
    template <class M>
    void forward(M& message);
    template <class M>
    void registerCall(M& message);
    void report(messages::Call&& call);
    void response(messages::Response&& message);

    MessageChannel& channel_;
    std::uint64_t nextUuid_ = 0; // under the turn
    const std::uint64_t dispatcherId_;
    MessageForwarderInterface* forwarder_;
    Store* store_;
    std::mutex mutex_;
    // Pending calls by the text of their uuid and notification handlers by the name of their command. A call that is
    // never answered stays here until the node ends.
    std::unordered_map<std::string, messages::Callback> callbacks_;
};

} // namespace trovi
