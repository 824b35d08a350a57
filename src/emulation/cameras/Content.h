#pragma once
// What a virtual camera shows: batches of events in timestamp order, as a camera would put them into its packets.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "davis/event/DvsEvent.h"

namespace emulation {

/// Threads: the camera's opener calls rewind() and next(), never at the same time.
class Content {
public:
    virtual ~Content() = default;

    /// Goes back to the beginning; the same batches come again.
    virtual void rewind() = 0;
    /// Replaces `batch` by the next one, which is never empty; false, with an empty one, at the end.
    virtual bool next(std::vector<davis::event::DvsEvent>& batch) = 0;
    /// Why next() ended early; nothing when it did not.
    virtual std::optional<std::string> damage() const { return std::nullopt; }
};

} // namespace emulation
