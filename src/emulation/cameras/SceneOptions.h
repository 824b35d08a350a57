#pragma once
// Options of a virtual camera that shows a synthetic scene. Plain values; plugVirtualDavis() checks them.

#include <cstdint>

#include "emulation/cameras/OptionDocs.h"
#include "trovi/Reflect.h"

namespace emulation {

/// A synthetic scene. The three weights divide the events among its parts; only their ratio matters.
struct SceneOptions {
    std::uint16_t width = 0;
    std::uint16_t height = 0;
    double movingBars = 1.0;
    double rotatingDot = 1.0;
    double noise = 0.2;
    double eventsPerSecond = 200'000.0;
    std::uint64_t seed = 1;
    std::int64_t durationUs = 0;
    std::int32_t batchUs = 10'000;
    bool realtime = true;
    double speed = 1.0;
    std::uint32_t maxBacklog = 8;

    friend bool operator==(const SceneOptions&, const SceneOptions&) = default;
};

} // namespace emulation

template <>
constexpr auto trovi::registerMembers<emulation::SceneOptions>()
{
    using emulation::SceneOptions;
    namespace doc = emulation::detail;
    return members(
        member("width", &SceneOptions::width, "columns, up to 4,096; 0: those of the camera (346 or 640)"),
        member("height", &SceneOptions::height, "rows, up to 4,096; 0: those of the camera (260 or 480)"),
        member("movingBars", &SceneOptions::movingBars, "weight of upright bars that move to the right, 0 or more"),
        member("rotatingDot", &SceneOptions::rotatingDot, "weight of a dot on a circle, 2 turns a second, 0 or more"),
        member("noise", &SceneOptions::noise, "weight of events anywhere, 0 or more"),
        member("eventsPerSecond", &SceneOptions::eventsPerSecond, "events a second of the scene's time, 1 to 1e8"),
        member("seed", &SceneOptions::seed, "the same seed shows the same events"),
        member("durationUs", &SceneOptions::durationUs, "length of the scene in microseconds; 0: endless"),
        member("batchUs", &SceneOptions::batchUs, doc::batchUsDoc),
        member("realtime", &SceneOptions::realtime, doc::realtimeDoc),
        member("speed", &SceneOptions::speed, doc::speedDoc),
        member("maxBacklog", &SceneOptions::maxBacklog, doc::maxBacklogDoc));
}

template <>
constexpr const char* trovi::registerDoc<emulation::SceneOptions>()
{
    return "A synthetic scene for a virtual camera: moving bars, a rotating dot, noise.";
}
