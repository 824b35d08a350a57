#pragma once
// Proxies: each represents an object in another node's store.
//
// Everything goes through the untyped Element::call, set and child, which take and give bytes in binary form; the typed
// functions check the types against the description first, and then use those three.

#include <chrono>
#include <cstdint>
#include <future>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "trovi/Messages.h"
#include "trovi/Serial.h"
#include "trovi/Store.h"

namespace trovi::remote {

/// How long a call waits for its answer.
inline constexpr std::chrono::milliseconds callTimeout{10'000};

/// Base of all that addresses a remote object: one in a store, or one that is reached from there by a chain of
/// references.
/// Threads: thread-safe; don't wait for an answer in a turn of the calling node.
class Element {
public:
    Element() = default;
    /// @param channel  of the calling node, which must outlive the element
    Element(MessageChannel* channel, StoreRef reference) : channel_(channel), reference(reference) {}

    const StoreRef& getReference() const { return reference; }
    MessageChannel* channel() const { return channel_; }
    /// True for an object that is reached by a chain.
    bool isChained() const { return !path.empty(); }

    /// Sends a call and waits. Release the Python interpreter's lock around it.
    /// @param command    StoreCommand::call, or ::get for a data member
    /// @param id         number of the function or member in the description of the object's class
    /// @param arguments  in binary form, one after the other
    /// @return the result in binary form; empty for a function without result
    /// @throws std::runtime_error "RPC timeout!"; std::future_error when the calling node stops before
    Bytes call(StoreCommand command, std::uint64_t id, Bytes arguments,
               std::chrono::milliseconds timeout = callTimeout) const;
    /// As call, without the wait.
    std::future<Bytes> callAsync(StoreCommand command, std::uint64_t id, Bytes arguments) const;
    /// Sends a new value for data member `id`, and does not wait.
    void set(std::uint64_t id, Bytes value) const;

    /// The object to which function `functionId` returns a reference. Nothing is sent: the function runs anew, on the
    /// far side, for each call on the result.
    Element child(std::uint64_t functionId, const Bytes& arguments = {}) const;
    /// The object that is data member `memberId`.
    Element memberChild(std::uint64_t memberId) const;

    /// Wraps `message` for its destination and enqueues it; `callback` gets the answer.
    template <class M>
    void send(M message, messages::Callback callback) const
    {
        if (isChained()) {
            messages::Internal wrapped = wrap(message);
            wrapped.callback = std::move(callback);
            enqueue(std::move(wrapped));
        } else {
            if constexpr (requires { message.callback; })
                message.callback = std::move(callback);
            enqueue(std::move(message));
        }
    }

private:
    void enqueue(messages::Message message) const;
    Element extended(messages::InternalType type, std::uint64_t id, const Bytes& arguments) const;
    // Each level's message lies inside the buffer of the level above.
    template <class M>
    messages::Internal wrap(const M& message) const
    {
        messages::Internal result = path.back().append(message);
        for (auto step = path.rbegin() + 1; step != path.rend(); ++step)
            result = step->append(result);
        return result;
    }

    MessageChannel* channel_ = nullptr; // not owned
    StoreRef reference = StoreRef::invalid();
    std::vector<messages::Internal> path; // the steps from the stored object down; empty for the object itself
};

/// @throws std::runtime_error "RPC timeout!", std::future_error
Bytes waitFor(std::future<Bytes> answer, std::chrono::milliseconds timeout = callTimeout);

/// One data member of a remote object.
class Member : public Element {
public:
    Member() = default;
    Member(const Element& object, std::uint64_t id, traits::TypeInfo type) : Element(object), id_(id), type_(type) {}

    std::uint64_t id() const { return id_; }
    const traits::TypeInfo& type() const { return type_; }
    Bytes getBytes() const { return call(StoreCommand::get, id_, {}); }
    void setBytes(Bytes value) const { Element::set(id_, std::move(value)); }

    /// @throws std::runtime_error "RPC timeout!", or as rtcheck
    template <class T>
    T get() const
    {
        rtcheck<T>();
        return deserializeBytes<T>(getBytes());
    }
    /// @throws std::runtime_error as rtcheck, before anything is sent
    template <class T>
    void set(const T& value) const
    {
        rtcheck<T>();
        setBytes(serializeToBuffer(value));
    }

    /// @throws std::runtime_error "Type mismatch in setting member. ..." when T is not the member's type
    template <class T>
    void rtcheck() const
    {
        check(traits::getTypeInfo<T>());
    }

    /// "trovi::remote::Member{ type = ..., id = ..., ref = ...}"
    std::string operator()() const;

private:
    void check(const traits::TypeInfo& given) const;

    std::uint64_t id_ = 0;
    traits::TypeInfo type_;
};

/// One member function of a remote object.
class MemberFunction : public Element {
public:
    MemberFunction() = default;
    MemberFunction(const Element& object, std::uint64_t id, traits::TypeInfo returnType, traits::TypeInfo paramsType)
        : Element(object), id_(id), returnType_(returnType), paramsType_(paramsType)
    {}

    std::uint64_t id() const { return id_; }
    const traits::TypeInfo& returnType() const { return returnType_; }
    const traits::TypeInfo& paramsType() const { return paramsType_; } ///< of the FunctionParams
    /// @throws std::runtime_error "RPC timeout!"
    Bytes callBytes(Bytes arguments) const { return call(StoreCommand::call, id_, std::move(arguments)); }

    /// Calls and waits, also for a function without a result.
    /// @throws std::runtime_error "RPC timeout!", or as rtcheck
    template <class Return, class... Args>
    Return invoke(const Args&... arguments) const
    {
        rtcheck<Return, FunctionParams<Args...>>();
        const Bytes result = callBytes(serializeToBuffer(arguments...));
        if constexpr (!std::is_void_v<Return>)
            return deserializeBytes<std::remove_cvref_t<Return>>(result);
    }

    /// @throws std::runtime_error "Type mismatch in member function invokation. ..." when the types are not the
    ///         function's; Params is FunctionParams of the decayed parameter types
    template <class Return, class Params>
    void rtcheck() const
    {
        check(traits::getTypeInfo<Return>(), traits::getTypeInfo<Params>());
    }

    /// "trovi::remote::MemberFunction{ return = ..., param = ..., id = ..., ref = ...}"
    std::string operator()() const;

private:
    void check(const traits::TypeInfo& givenReturn, const traits::TypeInfo& givenParams) const;

    std::uint64_t id_ = 0;
    traits::TypeInfo returnType_;
    traits::TypeInfo paramsType_;
};

/// The part of a proxy that is the same for all classes.
class ClassBase : public Element {
public:
    using Element::Element;
    explicit ClassBase(const Element& element) : Element(element) {}

    /// By reflected name.
    /// @throws std::out_of_range naming it when there is none
    const Member& member(const std::string& name) const;
    const MemberFunction& function(const std::string& name) const;
    const std::unordered_map<std::string, Member>& members() const { return members_; }
    const std::unordered_map<std::string, MemberFunction>& functions() const { return functions_; }

protected:
    void addMember(const char* name, traits::TypeInfo type);
    void addFunction(const char* name, traits::TypeInfo returnType, traits::TypeInfo paramsType);

private:
    std::unordered_map<std::string, Member> members_;           // numbered from 0 in the order of the description
    std::unordered_map<std::string, MemberFunction> functions_; // likewise, from 0 again
};

/// Proxy of an object of class T.
template <class T>
class Class : public ClassBase {
public:
    using ClassBase::ClassBase;

    /// Fills the maps from T's description. Of two functions of one name the last one is found.
    void bindMembersAndMethods()
    {
        forEach(MetaHolder<T>::members, [&](const auto& member) {
            addMember(member.name, traits::getTypeInfo<typename std::remove_cvref_t<decltype(member)>::Type>());
        });
        forEach(MetaFunctionHolder<T>::memberFuncs, [&](const auto& function) {
            using Signature = SignatureTraits<typename std::remove_cvref_t<decltype(function)>::Pointer>;
            addFunction(function.name, traits::getTypeInfo<typename Signature::Return>(),
                        traits::getTypeInfo<typename Signature::Params>());
        });
    }

    /// Calls the function with the reflected name `name`.
    /// @throws std::out_of_range, std::runtime_error as MemberFunction::invoke
    template <class Return, class... Args>
    Return invoke(const std::string& name, const Args&... arguments) const
    {
        return function(name).template invoke<Return>(arguments...);
    }
};

} // namespace trovi::remote
