#pragma once
// Regions of interest.

#include <cstdint>

namespace graph::nodes::detail {

/// @throws std::runtime_error when a region has no column or no row: its right or last one must be the greater
void validateROIVertices(std::int32_t xtl, std::int32_t ytl, std::int32_t xbr, std::int32_t ybr);

/// Holds for events with x in xtl to xbr and y in ytl to ybr, both ends included, compared as integers.
class RegionOfInterest {
public:
    /// The vertices must be valid.
    constexpr RegionOfInterest(std::int32_t xtl, std::int32_t ytl, std::int32_t xbr, std::int32_t ybr)
        : left(static_cast<std::uint32_t>(xtl)), top(static_cast<std::uint32_t>(ytl)),
          width(static_cast<std::uint32_t>(xbr) - left), height(static_cast<std::uint32_t>(ybr) - top)
    {}

    // One comparison per coordinate: what lies before the first column wraps to beyond the last.
    constexpr bool contains(std::uint16_t x, std::uint16_t y) const
    {
        return (x - left <= width) & (y - top <= height);
    }

    template <class Event>
    constexpr bool operator()(const Event& event) const
    {
        return contains(event.x, event.y);
    }

private:
    std::uint32_t left, top;     // negative ones as two's complement
    std::uint32_t width, height; // less 1
};

/// The predicate that EventCropNode::setROI() installs.
constexpr RegionOfInterest eventCropPredicate(std::int32_t xtl, std::int32_t ytl, std::int32_t xbr, std::int32_t ybr)
{
    return {xtl, ytl, xbr, ybr};
}

} // namespace graph::nodes::detail
