#pragma once
// The table of live, named objects of one node.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "trovi/ElementDescription.h"
#include "trovi/MessageChannel.h"
#include "trovi/Messages.h"
#include "trovi/Storable.h"
#include "trovi/StoreHolder.h"
#include "trovi/StoreRef.h"
#include "util/Mutex.h"

namespace trovi {

/// Threads: thread-safe. `mutex` is held while a message runs on an object, and in insert, erase, extract and report.
/// It is recursive, since a method of an object in the store may call these. Another thread that calls them waits for
/// the running method. Only `observersMutex` is taken inside it, and held while the set is read or changed.
/// Notifications are only enqueued, so they never block on the network.
class Store {
public:
    /// @param channel  of the node; it must outlive the store
    Store(MessageChannel& channel, std::uint64_t storeId) : channel(channel), storeId(storeId) {}
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;
    ~Store() { close(); }

    std::uint64_t id() const { return storeId; }
    std::size_t size() const;

    /// Takes `object` in under `name` and notifies the observers.
    /// @return its address; ids count on from 0 and are never used twice
    /// @throws std::runtime_error "Name: ... is already used by other element in the store!", or when the store is
    ///         closed; the object is destroyed
    template <class T>
    StoreRef insert(const std::string& name, std::unique_ptr<T> object)
    {
        return insertHolder(name, std::make_unique<StoreHolder<T>>(std::move(object), &channel, name));
    }

    /// As insert, for an object that someone else owns and keeps alive until it is erased or the store closes.
    template <class T>
    StoreRef insertBorrowed(const std::string& name, T& object)
    {
        return insertHolder(name, std::make_unique<StoreHolder<T>>(object, &channel, name));
    }

    /// Destroys the object, under the mutex, and notifies the observers.
    /// @return false when `ref` is of another store or the object isn't there
    bool erase(const StoreRef& ref);
    /// As erase, but hands the holder out. Null when nothing was found.
    std::unique_ptr<Storable> extract(const StoreRef& ref);

    /// Destroys the objects in ascending order of their ids. From then on insert throws. Does nothing a second time.
    void close();

    /// All objects in ascending order of their ids.
    std::vector<ElementDescription> report() const;
    /// @throws std::runtime_error as insert
    void assertNameNotInUse(const std::string& name) const;

    /// The nodes that are notified of changes.
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

    mutable util::RecursiveMutex mutex;
    std::map<std::uint64_t, std::unique_ptr<Storable>> objects VORNA_GUARDED_BY(mutex);
    std::uint64_t nextId VORNA_GUARDED_BY(mutex) = 0;
    bool closed VORNA_GUARDED_BY(mutex) = false;
    mutable util::Mutex observersMutex VORNA_ACQUIRED_AFTER(mutex);
    std::unordered_set<std::uint64_t> observers VORNA_GUARDED_BY(observersMutex);
    MessageChannel& channel;
    const std::uint64_t storeId;
};

} // namespace trovi
