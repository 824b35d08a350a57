#include "trovi/Store.h"

#include <stdexcept>

namespace trovi {

void Store::close()
{
    for (;;) {
        // Taken out of the map first: an object's destructor may erase others, as a device controller does.
        std::unique_ptr<Storable> first;
        const util::Lock lock(mutex);
        closed = true;
        if (objects.empty())
            return;
        first = std::move(objects.extract(objects.begin()).mapped());
    }
}

std::size_t Store::size() const
{
    const util::Lock lock(mutex);
    return objects.size();
}

StoreRef Store::insertHolder(const std::string& name, std::unique_ptr<Storable> holder)
{
    const util::Lock lock(mutex);
    if (closed)
        throw std::runtime_error("The store is closed: its node was stopped.");
    assertNameNotInUse(name);
    const StoreRef ref{storeId, nextId};
    const auto [place, isNew] = objects.try_emplace(ref.objId, std::move(holder));
    if (!isNew)
        return StoreRef::invalid();
    ++nextId;
    notifyObservers(ref, place->second->getHeldTypeName(), place->second->getHeldName(), ElementDescription::added);
    return ref;
}

bool Store::erase(const StoreRef& ref)
{
    if (ref.storeId != storeId)
        return false;
    const util::Lock lock(mutex);
    return extract(ref) != nullptr; // which destroys it, still under the mutex
}

std::unique_ptr<Storable> Store::extract(const StoreRef& ref)
{
    if (ref.storeId != storeId)
        return nullptr;
    const util::Lock lock(mutex);
    const auto place = objects.find(ref.objId);
    if (place == objects.end())
        return nullptr;
    notifyObservers(ref, place->second->getHeldTypeName(), place->second->getHeldName(), ElementDescription::removed);
    std::unique_ptr<Storable> holder = std::move(place->second);
    objects.erase(place);
    return holder;
}

std::vector<ElementDescription> Store::report() const
{
    const util::Lock lock(mutex);
    std::vector<ElementDescription> elements;
    for (const auto& [id, holder] : objects)
        elements.push_back(
            {{storeId, id}, holder->getHeldTypeName(), holder->getHeldName(), ElementDescription::existing});
    return elements;
}

void Store::assertNameNotInUse(const std::string& name) const
{
    const util::Lock lock(mutex);
    for (const auto& [id, holder] : objects)
        if (holder->getHeldName() == name)
            throw std::runtime_error("Name: " + name + " is already used by other element in the store!");
}

std::unordered_set<std::uint64_t> Store::getObserverNodes() const
{
    const util::Lock lock(observersMutex);
    return observers;
}

void Store::addObserverNode(std::uint64_t id)
{
    const util::Lock lock(observersMutex);
    observers.insert(id);
}

void Store::removeObserverNode(std::uint64_t id)
{
    const util::Lock lock(observersMutex);
    observers.erase(id);
}

void Store::notifyObservers(const StoreRef& ref, const std::string& type, const std::string& name,
                            ElementDescription::Change change)
{
    const std::vector<ElementDescription> elements{{ref, type, name, change}};
    for (const std::uint64_t observer : getObserverNodes())
        channel.enqueue(messages::Response{observer, StoreCommand::contentUpdate, serializeToBuffer("", elements)});
}

void Store::receiveMsg(const messages::Header& header, Bytes&& buffer)
{
    const util::Lock lock(mutex);
    if (const auto place = objects.find(header.ref.objId); place != objects.end())
        place->second->receiveMsg(header, std::move(buffer));
}

} // namespace trovi
