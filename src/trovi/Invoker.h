#pragma once
// The server half of a remote call: runs the function that a message names, and answers.

#include <array>
#include <cstddef>
#include <cstdint>
#include <istream>
#include <string>
#include <tuple>
#include <utility>

#include "trovi/MessageChannel.h"
#include "trovi/Messages.h"

namespace trovi {

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

} // namespace trovi
