#pragma once
// Keeps the events of one kind out of a variant, and offers them as a variant and as what they are.

#include <algorithm>
#include <any>
#include <array>
#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "graph/nodes/Batch.h"
#include "graph/nodes/FilterNode.h"
#include "graph/nodes/NodeReflection.h"
#include "util/Mutex.h"

namespace graph::nodes {

template <class Variant>
class EventTypeFilterNode;

/// Destinations take batches of the variant or of one of its alternatives; unlike with other nodes, none can be added
/// twice. Needs setDesiredType(): before that, batches wait in the channel without limit.
/// Threads: all of it is thread-safe. Batches sent after setDesiredType() are filtered by the new type.
template <class... Alternatives>
class EventTypeFilterNode<std::variant<Alternatives...>>
    : public FilterNode<Batch<std::variant<Alternatives...>>, Batch<std::variant<Alternatives...>>> {
public:
    using Variant = std::variant<Alternatives...>;
    using TypeNames = std::array<std::string, 1 + sizeof...(Alternatives)>;
    using FilterNode<Batch<Variant>, Batch<Variant>>::addDestination;
    using FilterNode<Batch<Variant>, Batch<Variant>>::removeDestination;

    /// Sends the waiting events of the desired type, if there are any.
    void apply() override
    {
        if (desiredType < availableTypes.size()) {
            const detail::WaitingBatches<Variant> waiting(*this->inputChannel);
            const std::uint32_t desired = desiredType; // after the batches are taken: see Threads above
            if (desired == 0)
                sendAll(waiting);
            else
                trovi::staticFor<sizeof...(Alternatives)>([&](auto index) {
                    if (desired == index + 1)
                        this->template sendAlternative<index>(waiting);
                });
        }
        const util::Lock lock(this->destinationsMutex);
        std::erase_if(typedDestinations, [](const Destination& destination) {
            return std::visit([](const auto& channel) { return channel.expired(); }, destination);
        });
    }

    /// @return false also when the destination is there already
    bool addDestination(const std::any* channel) override
    {
        const util::Lock lock(this->destinationsMutex);
        Destination destination;
        if (!parse(channel, destination) || std::ranges::any_of(typedDestinations, isSame(destination)))
            return false;
        typedDestinations.push_back(std::move(destination));
        return true;
    }

    bool removeDestination(const std::any* channel) override
    {
        const util::Lock lock(this->destinationsMutex);
        Destination destination;
        return parse(channel, destination) && std::erase_if(typedDestinations, isSame(destination)) > 0;
    }

    /// @param name  one of getAvailableTypes(); the first means the whole variant
    /// @throws std::runtime_error for any other; the type stays as it was
    void setDesiredType(const std::string& name) const
    {
        const auto found = std::ranges::find(availableTypes, name);
        if (found == availableTypes.end())
            throw std::runtime_error("The desired type: \"" + name + "\" is unknown!");
        desiredType = static_cast<std::uint32_t>(found - availableTypes.begin());
    }

    /// Empty when no type was set, and also when the whole variant was.
    std::string getDesiredType() const
    {
        const std::uint32_t desired = desiredType;
        return desired >= 1 && desired < availableTypes.size() ? availableTypes[desired] : std::string();
    }

    /// The name of the variant, then those of its alternatives in their order.
    TypeNames getAvailableTypes() const { return availableTypes; }

private:
    template <class Event>
    using Target = std::weak_ptr<ondra::Channel<Batch<Event>>>;
    using Destination = std::variant<Target<Variant>, Target<Alternatives>...>;

    template <class Event>
    static bool parseAs(const std::any* channel, Destination& destination)
    {
        const auto* target = std::any_cast<Target<Event>>(channel);
        if (target)
            destination = *target;
        return target != nullptr;
    }
    static bool parse(const std::any* channel, Destination& destination)
    {
        return parseAs<Variant>(channel, destination) || (parseAs<Alternatives>(channel, destination) || ...);
    }

    static auto isSame(const Destination& wanted)
    {
        return [&wanted](const Destination& destination) {
            return std::visit(
                []<class Left, class Right>(const Left& left, const Right& right) {
                    if constexpr (std::is_same_v<Left, Right>)
                        return !left.owner_before(right) && !right.owner_before(left);
                    else
                        return false;
                },
                destination, wanted);
        };
    }

    template <class Event>
    void sendToDestinations(const Batch<Event>& batch)
    {
        const util::Lock lock(this->destinationsMutex);
        for (const auto& destination : typedDestinations)
            if (const auto* target = std::get_if<Target<Event>>(&destination))
                if (const auto channel = target->lock())
                    channel->enqueue(batch);
    }

    void sendAll(const detail::WaitingBatches<Variant>& waiting)
    {
        auto events = std::make_shared<std::vector<Variant>>();
        events->reserve(waiting.eventCount);
        for (const auto& batch : waiting.batches)
            events->insert(events->end(), batch->begin(), batch->end());
        if (!events->empty())
            sendToDestinations<Variant>(events);
    }

    template <std::size_t Index>
    void sendAlternative(const detail::WaitingBatches<Variant>& waiting)
    {
        using Event = std::variant_alternative_t<Index, Variant>;
        auto events = std::make_shared<std::vector<Variant>>();
        auto typed = std::make_shared<std::vector<Event>>();
        for (const auto& batch : waiting.batches)
            for (const Variant& event : *batch)
                if (const Event* alternative = std::get_if<Index>(&event)) {
                    events->push_back(event);
                    typed->push_back(*alternative);
                }
        if (events->empty())
            return;
        sendToDestinations<Variant>(events);
        sendToDestinations<Event>(typed);
    }

    // The base's list stays empty.
    std::vector<Destination> typedDestinations VORNA_GUARDED_BY(this->destinationsMutex);
    const TypeNames availableTypes = {trovi::registeredName<Variant>(), trovi::registeredName<Alternatives>()...};
    // Index into availableTypes. Mutable, since callers set it on constant nodes too.
    mutable std::atomic<std::uint32_t> desiredType = std::numeric_limits<std::uint32_t>::max();
};

} // namespace graph::nodes

template <class Variant>
struct trovi::RegisterImplementation<graph::nodes::EventTypeFilterNode<Variant>> {
    using Node = graph::nodes::EventTypeFilterNode<Variant>;

    static std::string registerName()
    {
        return graph::nodes::detail::nodeName<Variant>("graph::nodes::EventTypeFilter_");
    }
    static constexpr auto registerMemberFunctions()
    {
        return functions(
            function("setDesiredType", &Node::setDesiredType,
                     "Lets only events of this type pass, by a name of get_available_types(); the first means\n"
                     "all. Raises RuntimeError for any other name.",
                     "name"),
            function("getDesiredType", &Node::getDesiredType,
                     "The name of the type that passes; empty when none was set and when all pass."),
            function("getAvailableTypes", &Node::getAvailableTypes,
                     "The name of the variant, then those of its alternatives."),
            graph::nodes::detail::inputFunction<Node>(),
            graph::nodes::detail::addDestinationFunction<Node>(
                "Sends results to this input too, from the next batch on.\n"
                "False, and nothing is changed, when it is a destination already, when it is not the input of a\n"
                "node of this process, and when it takes events that are not in the variant."),
            graph::nodes::detail::removeDestinationFunction<Node>());
    }
    static constexpr const char* registerDoc()
    {
        return "Lets events of one type pass, to destinations for the variant and to those for the type itself.\n"
               "A destination can be added once only. Until a type is set, events wait in the node.";
    }
};
