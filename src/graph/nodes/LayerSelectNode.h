#pragma once
// Keeps the events of the chosen layers of a chip.

#include <bitset>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <variant>
#include <vector>

#include "graph/nodes/Batch.h"
#include "graph/nodes/FilterNode.h"
#include "graph/nodes/NodeReflection.h"
#include "graph/nodes/detail/AlwaysTrue.h"
#include "graph/nodes/detail/TurnMutex.h"
#include "util/Mutex.h"

namespace graph::nodes {

namespace detail {

/// Holds for events of these layers. A kind of event says by its member `isSelectedByLayer` that its `layer` counts;
/// other kinds are never selected, even if they have a layer.
class LayersSelected {
public:
    explicit LayersSelected(const std::vector<std::uint8_t>& layers)
    {
        for (const auto layer : layers)
            selected.set(layer);
    }

    template <class Variant>
    bool operator()(const Variant& event) const
    {
        return std::visit(
            [this]<class Kind>(const Kind& alternative) {
                if constexpr (requires { requires Kind::isSelectedByLayer; })
                    return alternative.layer < selected.size() && selected[alternative.layer];
                else
                    return false;
            },
            event);
    }

private:
    std::bitset<256> selected;
};

/// The predicate that LayerSelectNode::setLayers() installs.
inline LayersSelected layerSelectPredicate(const std::vector<std::uint8_t>& layers) { return LayersSelected(layers); }

} // namespace detail

/// Variant is a chip's variant of events. Until layers are set, and after reset(), everything passes.
/// Threads: all of it is thread-safe; settings wait for a running apply().
template <class Variant>
class LayerSelectNode : public FilterNode<Batch<Variant>, Batch<Variant>> {
public:
    /// Sends one vector with the kept events of all waiting batches, an empty one when there are none.
    void apply() override
    {
        const util::Lock lock(mutex);
        const detail::WaitingBatches<Variant> waiting(*this->inputChannel);
        auto kept = std::make_shared<std::vector<Variant>>();
        kept->reserve(waiting.eventCount);
        const auto append = [&](const auto& predicate) {
            for (const auto& batch : waiting.batches)
                for (const Variant& event : *batch)
                    if (predicate(event))
                        kept->push_back(event);
        };
        if (const auto* layers = predicate.template target<detail::LayersSelected>())
            append(*layers); // compiled into the loop instead of called
        else
            append(predicate);
        this->send(std::move(kept));
    }

    /// Keeps events of these layers; none keeps nothing.
    void setLayers(const std::vector<std::uint8_t>& layers) { install(detail::layerSelectPredicate(layers)); }

    void reset() { install(detail::AlwaysTrue()); }

private:
    using Predicate = std::function<bool(const Variant&)>;

    void install(Predicate newPredicate)
    {
        const util::Lock lock(mutex);
        predicate.swap(newPredicate);
    }

    detail::TurnMutex mutex;
    Predicate predicate VORNA_GUARDED_BY(mutex) = detail::AlwaysTrue();
};

} // namespace graph::nodes

template <class Variant>
struct trovi::RegisterImplementation<graph::nodes::LayerSelectNode<Variant>> {
    using Node = graph::nodes::LayerSelectNode<Variant>;

    static std::string registerName() { return graph::nodes::detail::nodeName<Variant>("graph::nodes::LayerSelect_"); }
    static constexpr auto registerMemberFunctions()
    {
        return std::tuple_cat(
            functions(blockingFunction("setLayers", &Node::setLayers,
                                       "Keeps the spikes, DVS events and register, memory and BIST values of these\n"
                                       "layers (0 to 255 each) and nothing else; no layers keep nothing.",
                                       "layers"),
                      blockingFunction("reset", &Node::reset, "Lets everything pass, also events without a layer.")),
            graph::nodes::detail::filterFunctions<Node>());
    }
    static constexpr const char* registerDoc()
    {
        return "Keeps the events of some layers. Until they are set, everything passes.";
    }
};
