// The decoder of blocks: whatever a board sends ends in packets of 1 to 256 bytes, it doesn't matter where reads are
// cut between blocks, and no buffer is lost or made twice.

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <span>
#include <vector>

#include "keplin/BlockDecoder.h"
#include "keplin/PacketDelivery.h"

namespace {

using namespace keplin;

struct Result {
    std::vector<std::uint8_t> packets; // one after another, each from its header on
    std::int32_t credit = 0;
    friend bool operator==(const Result&, const Result&) = default;
};

Result decode(std::span<const std::uint8_t> data, std::size_t bytesPerRead)
{
    Result result;
    BlockDecoder decoder;
    PacketDelivery::Memory memory;
    PacketQueue queue;
    while (!data.empty()) {
        const std::size_t here = std::min(bytesPerRead, data.size());
        PacketDelivery delivery(nullptr, queue, memory);
        result.credit = decoder.decode(data.first(here), result.credit, delivery);
        data = data.subspan(here);
    }
    while (std::optional<PacketPtr> packet = queue.dequeue()) {
        const PacketBuffer& buffer = **packet;
        if (buffer.size == 0 || buffer.size > MaxPayloadBytes || buffer.wireWords() != wordsOfHeader(buffer.header))
            std::abort();
        const auto* wire = reinterpret_cast<const std::uint8_t*>(buffer.wire());
        result.packets.insert(result.packets.end(), wire, wire + 4 * buffer.wireWords());
        Keplin::putPacketBuffer(std::move(*packet));
    }
    return result;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::size_t blocksPerRead = 1 + data[0] % 8;
    const std::span rest(data + 1, size - 1);
    if (decode(rest, rest.size() + 1) != decode(rest, blocksPerRead * BlockBytes))
        std::abort();
    std::uint32_t inCirculation = 0, inPool = 0;
    Keplin::getBufferPoolStats(inCirculation, inPool);
    if (inCirculation != inPool)
        std::abort();
    return 0;
}
