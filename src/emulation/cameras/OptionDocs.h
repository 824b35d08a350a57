#pragma once
// Texts for the options that scenes and recordings share.

namespace emulation::detail {

inline constexpr const char* realtimeDoc =
    "True: a batch comes when the time of its last event has come, counted from the start.\n"
    "False: as fast as the nodes connected to the camera take batches";
inline constexpr const char* speedDoc = "how many times faster than real time, above 0; used when realtime is true";
inline constexpr const char* batchUsDoc =
    "length of a batch in microseconds, 1 or more; a camera's packets have 10,000";
inline constexpr const char* maxBacklogDoc =
    "with realtime false, no batch is sent while this many wait at a connected node; 1 or more";

} // namespace emulation::detail
