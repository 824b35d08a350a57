#pragma once
// The predicate of a filter that keeps everything.

namespace graph::nodes::detail {

/// Filters start with it. It has a type of its own, so that they can copy batches whole.
struct AlwaysTrue {
    template <class Event>
    constexpr bool operator()(const Event&) const
    {
        return true;
    }
};

} // namespace graph::nodes::detail
