#include "trovi/Store.h"

#include <stdexcept>

namespace trovi {

Store::~Store()
{
    // One after the other: a map's own destructor promises no order.
    // Taken out of the map first, since an object's destructor may erase others (a device controller does).
    while (!objects_.empty())
        objects_.extract(objects_.begin());
}

std::size_t Store::size() const
{
    const std::lock_guard lock(mutex_);
    return objects_.size();
}

StoreRef Store::insertHolder(const std::string& name, std::unique_ptr<Storable> holder)
{
    const std::lock_guard lock(mutex_);
    assertNameNotInUse(name);
    const StoreRef ref{storeId_, nextId_};
    const auto [place, isNew] = objects_.try_emplace(ref.objId, std::move(holder));
    if (!isNew)
        return StoreRef::invalid();
    ++nextId_;
    notifyObservers(ref, place->second->getHeldTypeName(), place->second->getHeldName(), ElementDescription::added);
    return ref;
}

bool Store::erase(const StoreRef& ref)
{
    if (ref.storeId != storeId_)
        return false;
    const std::lock_guard lock(mutex_);
    return extract(ref) != nullptr; // which destroys it, still under the mutex
}

std::unique_ptr<Storable> Store::extract(const StoreRef& ref)
{
    if (ref.storeId != storeId_)
        return nullptr;
    const std::lock_guard lock(mutex_);
    const auto place = objects_.find(ref.objId);
    if (place == objects_.end())
        return nullptr;
    notifyObservers(ref, place->second->getHeldTypeName(), place->second->getHeldName(), ElementDescription::removed);
    std::unique_ptr<Storable> holder = std::move(place->second);
    objects_.erase(place);
    return holder;
}

std::vector<ElementDescription> Store::report() const
{
    const std::lock_guard lock(mutex_);
    std::vector<ElementDescription> elements;
    for (const auto& [id, holder] : objects_)
        elements.push_back(
            {{storeId_, id}, holder->getHeldTypeName(), holder->getHeldName(), ElementDescription::existing});
    return elements;
}

void Store::assertNameNotInUse(const std::string& name) const
{
    const std::lock_guard lock(mutex_);
    for (const auto& [id, holder] : objects_)
        if (holder->getHeldName() == name)
            throw std::runtime_error("Name: " + name + " is already used by other element in the store!");
}

std::unordered_set<std::uint64_t> Store::getObserverNodes() const
{
    const std::lock_guard lock(observersMutex_);
    return observers_;
}

void Store::addObserverNode(std::uint64_t id)
{
    const std::lock_guard lock(observersMutex_);
    observers_.insert(id);
}

void Store::removeObserverNode(std::uint64_t id)
{
    const std::lock_guard lock(observersMutex_);
    observers_.erase(id);
}

void Store::notifyObservers(const StoreRef& ref, const std::string& type, const std::string& name,
                            ElementDescription::Change change)
{
    const std::vector<ElementDescription> elements{{ref, type, name, change}};
    for (const std::uint64_t observer : getObserverNodes())
        channel_.enqueue(messages::Response{observer, StoreCommand::contentUpdate, serializeToBuffer("", elements)});
}

void Store::receiveMsg(const messages::Header& header, Bytes&& buffer)
{
    const std::lock_guard lock(mutex_);
    if (const auto place = objects_.find(header.ref.objId); place != objects_.end())
        place->second->receiveMsg(header, std::move(buffer));
}

} // namespace trovi
