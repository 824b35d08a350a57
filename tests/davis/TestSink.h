#pragma once
// A node that the tests read by hand, and what they all need to run a camera into it.

#include <cstdint>
#include <vector>

#include "../graph/NodeTesting.h"
#include "davis/event/DvsEvent.h"
#include "emulation/cameras/Scene.h"
#include "emulation/cameras/VirtualCamera.h"
#include "libcaer/StandIn.h"

namespace test {

using davis::event::DvsEvent;

constexpr std::int64_t longTimeMs = 60'000; // no wait of a good run comes near it

using Sink = node_testing::BatchSink<DvsEvent>;

/// Leaves no camera behind where cameras are found.
struct EmptyBus {
    ~EmptyBus()
    {
        emulation::unplugAllVirtualCameras();
        standin::bus.clear();
    }
};

/// Moves a camera to where libcaer finds it, if asked to.
inline std::shared_ptr<emulation::VirtualCamera> plugged(std::shared_ptr<emulation::VirtualCamera> camera,
                                                         bool byLibcaer)
{
    if (byLibcaer)
        standin::bus.push_back(davis::driver::VirtualBus::instance().unplug(*camera));
    return camera;
}

/// As fast as it is read; the tests check content then, not time.
inline emulation::SceneOptions fastScene(std::int64_t durationUs, double eventsPerSecond = 1e6)
{
    return {.width = 90,
            .height = 60,
            .eventsPerSecond = eventsPerSecond,
            .durationUs = durationUs,
            .realtime = false,
            .maxBacklog = 1'000'000};
}

/// All that a scene with a width and a height shows.
inline std::vector<DvsEvent> sceneOf(const emulation::SceneOptions& options)
{
    emulation::Scene scene(options);
    std::vector<DvsEvent> all;
    std::vector<DvsEvent> batch;
    while (scene.next(batch))
        all.insert(all.end(), batch.begin(), batch.end());
    return all;
}

} // namespace test
