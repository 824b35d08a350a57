#pragma once
// Options of a virtual camera that plays a recording. Plain values; plugVirtualDavisRecording() checks them.

#include <cstdint>

#include "emulation/cameras/OptionDocs.h"
#include "trovi/Reflect.h"

namespace emulation {

/// How a recording is played.
struct ReplayOptions {
    std::uint16_t width = 0;
    std::uint16_t height = 0;
    bool loop = false;
    bool ownPackets = false;
    std::int32_t batchUs = 10'000;
    bool realtime = true;
    double speed = 1.0;
    std::uint32_t maxBacklog = 8;

    friend bool operator==(const ReplayOptions&, const ReplayOptions&) = default;
};

} // namespace emulation

template <>
constexpr auto trovi::registerMembers<emulation::ReplayOptions>()
{
    using emulation::ReplayOptions;
    namespace doc = emulation::detail;
    return members(
        member("width", &ReplayOptions::width,
               "columns, up to 4,096; 0: those of the recording, else of the camera (346 or 640)"),
        member("height", &ReplayOptions::height,
               "rows, up to 4,096; 0: those of the recording, else of the camera (260 or 480)"),
        member("loop", &ReplayOptions::loop, "play again from the beginning at the end; timestamps go on growing"),
        member("ownPackets", &ReplayOptions::ownPackets,
               "send the packets of the recording (AEDAT 3.1; other formats: pieces of the file) as batches, "
               "instead of batches of batchUs"),
        member("batchUs", &ReplayOptions::batchUs, doc::batchUsDoc),
        member("realtime", &ReplayOptions::realtime, doc::realtimeDoc),
        member("speed", &ReplayOptions::speed, doc::speedDoc),
        member("maxBacklog", &ReplayOptions::maxBacklog, doc::maxBacklogDoc));
}

template <>
constexpr const char* trovi::registerDoc<emulation::ReplayOptions>()
{
    return "How a virtual camera plays a recording.";
}
