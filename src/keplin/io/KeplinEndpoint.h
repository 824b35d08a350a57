#pragma once
// The transport of a dev kit, as the reader/writer sees it: whole blocks in, whole blocks out.

#include <cstdint>
#include <vector>

#include "keplin/PacketHeader.h"
#include "trovi/Reflect.h"

namespace keplin {

class KeplinEndpoint {
public:
    virtual ~KeplinEndpoint() = default;

    /// Reads `blocks` blocks of 1024 bytes; waits until the board has sent them.
    /// @return `blocks` times 1024 bytes, zero where nothing came
    virtual std::vector<std::uint8_t> readKeplinEndpoint(int blocks) = 0;

    /// Writes whole blocks.
    /// @return whether the transport took them
    virtual bool writeKeplinEndpoint(const std::vector<std::uint8_t>& data) = 0;
};

} // namespace keplin

template <>
constexpr auto trovi::registerMemberFunctions<keplin::KeplinEndpoint>()
{
    using keplin::KeplinEndpoint;
    return functions(
        blockingFunction("read_keplin_endpoint", &KeplinEndpoint::readKeplinEndpoint,
                         "Reads that many blocks of 1024 bytes. Only while the reader/writer is stopped, which would "
                         "miss them.",
                         "blocks"),
        blockingFunction("write_keplin_endpoint", &KeplinEndpoint::writeKeplinEndpoint,
                         "Writes bytes, a multiple of 1024 of them. True when the transport took them.", "data"));
}

template <>
constexpr const char* trovi::registerDoc<keplin::KeplinEndpoint>()
{
    return "The block stream of a board.";
}
