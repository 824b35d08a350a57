#pragma once
// The table of live, named objects of one node.

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "trovi/MessageChannel.h"
#include "trovi/Messages.h"
#include "trovi/StoreRef.h"

namespace trovi {

/// One object of a store as other nodes see it.
struct ElementDescription {
    enum Change : std::uint32_t { added = 0, removed = 1, existing = 2 };

    StoreRef ref;
    std::string type; ///< typeName of the held class
    std::string name;
    std::uint32_t change = existing;

    friend bool operator==(const ElementDescription&, const ElementDescription&) = default;
};

template <>
constexpr auto registerMembers<ElementDescription>()
{
    using E = ElementDescription;
    return members(member("ref", &E::ref, "address of the object"), member("type", &E::type, "name of its class"),
                   member("name", &E::name, "its name in the store"),
                   member("change", &E::change, "0: added, 1: removed, 2: element of a report"));
}

template <>
constexpr const char* registerDoc<ElementDescription>()
{
    return "One object of a store, as other nodes are told of it.";
}

/// What a store holds: an object that messages can be sent to.
class Storable {
public:
    virtual ~Storable() = default;
    /// Runs in the node's turn, under the store's mutex.
    virtual void receiveMsg(messages::Header header, Bytes&& buffer) = 0;
    virtual std::string getHeldTypeName() const = 0;
    virtual std::string getHeldName() const = 0;
};

template <class T>
class StoreHolder; // trovi/Dispatcher.h

/// Threads: thread-safe. The mutex is held across a whole message's execution on an object and across insert, erase,
/// extract and report; it is recursive, since a method of an object in the store may call these. Another thread that
/// calls them waits for the running method. Inside it only the observers' mutex is taken, which is never held longer
/// than a look at the set. Telling the observers only enqueues, so it never blocks on the network.
class Store {
public:
    /// @param channel  of the node; it must outlive the store
    Store(MessageChannel& channel, std::uint64_t storeId) : channel_(channel), storeId_(storeId) {}
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    /// Destroys the objects in ascending order of their ids.
    ~Store();

    std::uint64_t id() const { return storeId_; }
    std::size_t size() const;

    /// Takes `object` in under `name` and tells the observers. Include trovi/Dispatcher.h to call it.
    /// @return its address; ids count on from 0 and are never used twice
    /// @throws std::runtime_error "Name: ... is already used by other element in the store!"; the object is destroyed
    template <class T>
    StoreRef insert(const std::string& name, std::unique_ptr<T> object)
    {
        return insertHolder(name, std::make_unique<StoreHolder<T>>(std::move(object), &channel_, name));
    }

    /// As insert, for an object that someone else owns and keeps alive until it is erased or the store ends.
    template <class T>
    StoreRef insertBorrowed(const std::string& name, T& object)
    {
        return insertHolder(name, std::make_unique<StoreHolder<T>>(object, &channel_, name));
    }

    /// Destroys the object, under the mutex, and tells the observers.
    /// @return false when `ref` is of another store or the object isn't there
    bool erase(const StoreRef& ref);
    /// As erase, but hands the holder out. Null when nothing was found.
    std::unique_ptr<Storable> extract(const StoreRef& ref);

    /// All objects in ascending order of their ids.
    std::vector<ElementDescription> report() const;
    /// @throws std::runtime_error as insert
    void assertNameNotInUse(const std::string& name) const;

    /// The nodes that are told of changes.
    std::unordered_set<std::uint64_t> getObserverNodes() const;
    void addObserverNode(std::uint64_t id);
    void removeObserverNode(std::uint64_t id);
    /// Enqueues one `contentUpdate` for each observer.
    void notifyObservers(const StoreRef& ref, const std::string& type, const std::string& name,
                         ElementDescription::Change change);

    /// Hands the message to the addressed object. One for an unknown object is dropped.
    void receiveMsg(const messages::Header& header, Bytes&& buffer);

private:
    StoreRef insertHolder(const std::string& name, std::unique_ptr<Storable> holder);

    mutable std::recursive_mutex mutex_; // guards objects_ and nextId_
    std::map<std::uint64_t, std::unique_ptr<Storable>> objects_;
    MessageChannel& channel_;
    std::uint64_t nextId_ = 0;
    const std::uint64_t storeId_;
    mutable std::mutex observersMutex_; // inner to mutex_
    std::unordered_set<std::uint64_t> observers_;
};

} // namespace trovi
