#pragma once
// The synthetic scene: upright bars that move to the right, a dot that runs round on a circle, and noise.

#include <array>
#include <cstdint>
#include <random>
#include <vector>

#include "emulation/cameras/Content.h"
#include "emulation/cameras/SceneOptions.h"

namespace emulation {

/// Events are evenly spaced in time. Each belongs to one part of the scene, chosen at random by the weights. Equal
/// options give equal events in the same build.
class Scene final : public Content {
public:
    /// @param options  checked, with width and height set
    explicit Scene(const SceneOptions& options);

    void rewind() override;
    bool next(std::vector<davis::event::DvsEvent>& batch) override;

private:
    struct Moment; // positions of the bars and the dot
    Moment momentAt(std::int64_t timeUs) const;
    davis::event::DvsEvent draw(const Moment& moment, std::int64_t timestamp);
    davis::event::DvsEvent barEvent(const Moment& moment, std::uint64_t bits) const;
    davis::event::DvsEvent dotEvent(const Moment& moment, std::uint64_t bits) const;
    davis::event::DvsEvent noiseEvent(std::uint64_t bits) const;
    std::uint64_t eventsUntil(std::int64_t timeUs) const;

    const SceneOptions options;
    std::uint32_t barsBelow; // a 16-bit draw below this is an event of the bars,
    std::uint32_t dotBelow;  // below this one of the dot, else noise
    std::mt19937_64 random;
    std::int64_t nowUs = 0;    // end of the last batch
    std::uint64_t emitted = 0; // events before nowUs
};

} // namespace emulation
