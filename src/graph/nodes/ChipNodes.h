#pragma once
// The nodes over the events of the chips: what is selected by its layer, and the filters, compiled once. Who makes one
// of these filters includes this header, and no other.

#include "graph/nodes/EventTypeFilterNode.h"
#include "graph/nodes/LayerSelectNode.h"
#include "ravik/event/Events.h"
#include "tessel/event/Events.h"

namespace graph::nodes {

template <>
inline constexpr bool isSelectedByLayer<tessel::event::Spike> = true;
template <>
inline constexpr bool isSelectedByLayer<tessel::event::DvsEvent> = true;
template <>
inline constexpr bool isSelectedByLayer<tessel::event::RegisterValue> = true;
template <>
inline constexpr bool isSelectedByLayer<tessel::event::MemoryValue> = true;
template <>
inline constexpr bool isSelectedByLayer<tessel::event::BistValue> = true;

template <>
inline constexpr bool isSelectedByLayer<ravik::event::Spike> = true;
template <>
inline constexpr bool isSelectedByLayer<ravik::event::DvsEvent> = true;
template <>
inline constexpr bool isSelectedByLayer<ravik::event::RegisterValue> = true;
template <>
inline constexpr bool isSelectedByLayer<ravik::event::MemoryValue> = true;
template <>
inline constexpr bool isSelectedByLayer<ravik::event::BistValue> = true;

extern template class LayerSelectNode<tessel::event::OutputEvent>;
extern template class LayerSelectNode<ravik::event::OutputEvent>;
extern template class EventTypeFilterNode<tessel::event::OutputEvent>;
extern template class EventTypeFilterNode<ravik::event::OutputEvent>;

} // namespace graph::nodes
