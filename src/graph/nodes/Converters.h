#pragma once
// Builders of nodes that turn each batch into one of another event type, for EventFilterNodeFactory. They keep no
// state.

#include <cstdint>
#include <memory>
#include <utility>
#include <variant>
#include <vector>

#include "davis/event/DvsEvent.h"
#include "graph/nodes/Batch.h"
#include "ondra/FunctionFilter.h"

namespace graph::nodes {

namespace detail {

/// A node that appends to a new batch of Out what append(vector, event) makes of each event, in order.
template <class In, class Out, class Append>
std::unique_ptr<ondra::NodeInterface> batchConverter(Append append)
{
    return std::make_unique<ondra::FunctionFilter<Batch<In>, Batch<Out>>>([append](const Batch<In>& batch) {
        auto converted = std::make_shared<std::vector<Out>>();
        converted->reserve(batch->size());
        for (const In& event : *batch)
            append(*converted, event);
        return converted;
    });
}

/// The event by which a camera's pixel reaches the chip: it goes in at layer 13, the polarity chooses the feature.
template <class RouterEvent>
RouterEvent routerEvent(bool polarity, int x, int y)
{
    RouterEvent event{};
    event.layer = 13;
    event.feature = static_cast<decltype(event.feature)>(polarity);
    event.x = static_cast<std::uint8_t>(x);
    event.y = static_cast<std::uint8_t>(y);
    return event;
}

} // namespace detail

/// Passes on the very same batch.
template <class Event>
std::unique_ptr<ondra::NodeInterface> forward()
{
    return std::make_unique<ondra::FunctionFilter<Batch<Event>, Batch<Event>>>(
        [](const Batch<Event>& batch) { return batch; });
}

/// Keeps a chip's DVS events. RawEvent is what a plotting process takes: (0, row, column, 0, time in us, polarity). The
/// chip counts rows from below.
template <class Variant, class DvsEvent, class RawEvent>
std::unique_ptr<ondra::NodeInterface> dvsToRawConverter()
{
    return detail::batchConverter<Variant, RawEvent>([](std::vector<RawEvent>& out, const Variant& event) {
        if (const auto* dvs = std::get_if<DvsEvent>(&event))
            out.emplace_back(std::uint64_t{0}, std::uint64_t{128} - dvs->y, static_cast<std::uint64_t>(dvs->x),
                             std::uint64_t{0}, static_cast<std::uint32_t>(dvs->timestamp),
                             static_cast<std::uint32_t>(dvs->p));
    });
}

/// As above from a camera's events; the timestamp is cut to 32 bits.
template <class RawEvent>
std::unique_ptr<ondra::NodeInterface> davisToRawConverter()
{
    using davis::event::DvsEvent;
    return detail::batchConverter<DvsEvent, RawEvent>([](std::vector<RawEvent>& out, const DvsEvent& event) {
        out.emplace_back(std::uint64_t{0}, std::uint64_t{event.y}, std::uint64_t{event.x}, std::uint64_t{0},
                         static_cast<std::uint32_t>(event.timestamp), static_cast<std::uint32_t>(event.polarity));
    });
}

/// Variant is a chip's input variant, RouterEvent its alternative for pixels. Coordinates are cut to 8 bits.
template <class Variant, class RouterEvent>
std::unique_ptr<ondra::NodeInterface> davisToChipInputConverter()
{
    using davis::event::DvsEvent;
    return detail::batchConverter<DvsEvent, Variant>([](std::vector<Variant>& out, const DvsEvent& event) {
        out.push_back(detail::routerEvent<RouterEvent>(event.polarity, event.x, event.y));
    });
}

/// Keeps the 128 by 128 pixels in the middle of a sensor of 346 by 260 and moves their corner to (0, 0).
template <class Variant, class RouterEvent>
std::unique_ptr<ondra::NodeInterface> davis346Center128ToChipInputConverter()
{
    using davis::event::DvsEvent;
    constexpr int side = 128, left = 110, top = 66; // 110 rather than 109, the exact middle
    return detail::batchConverter<DvsEvent, Variant>([](std::vector<Variant>& out, const DvsEvent& event) {
        const int x = event.x - left, y = event.y - top;
        if (x >= 0 && x < side && y >= 0 && y < side)
            out.push_back(detail::routerEvent<RouterEvent>(event.polarity, x, y));
    });
}

} // namespace graph::nodes
