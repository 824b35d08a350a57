#include "keplin/BlockDecoder.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "keplin/PacketDelivery.h"
#include "keplin/PacketPool.h"
#include "util/LittleEndian.h"

namespace keplin {

namespace {

std::uint32_t wordAt(const std::uint8_t* block, std::uint32_t index)
{
    return util::readLittleEndian<std::uint32_t>(block + 4 * index);
}

/// Copies a whole packet of `words` words, at least 2.
void copyPacket(std::byte* target, const std::uint8_t* source, std::uint32_t words)
{
    // up to 4 words (one or two event words) as two pairs, which may overlap: a call of memcpy costs more than all else
    if (words <= 4) {
        std::memcpy(target, source, 8);
        std::memcpy(target + 4 * (words - 2), source + 4 * (words - 2), 8);
    } else {
        std::memcpy(target, source, 4 * words);
    }
}

inline void finish(PacketDelivery& delivery, PacketPtr packet, std::uint32_t headerWord)
{
    packet->size = header::length.get(headerWord) + 1;
    delivery.deliver(std::move(packet), headerWord);
}

} // namespace

BlockDecoder::~BlockDecoder() { PacketPool::getInstance().putPacketBuffer(std::move(current)); }

std::int32_t BlockDecoder::decode(std::span<const std::uint8_t> blocks, std::int32_t credit, PacketDelivery& delivery)
{
    while (!blocks.empty()) {
        std::array<std::uint8_t, BlockBytes> padded;
        const std::uint8_t* block = blocks.data();
        if (blocks.size() < BlockBytes) {
            padded.fill(0);
            std::copy(blocks.begin(), blocks.end(), padded.begin());
            block = padded.data();
        }
        credit = static_cast<std::int32_t>(wordAt(block, 0));
        decodeBlock(block, delivery);
        blocks = blocks.subspan(std::min<std::size_t>(blocks.size(), BlockBytes));
    }
    return credit;
}

void BlockDecoder::decodeBlock(const std::uint8_t* block, PacketDelivery& delivery)
{
    std::uint32_t i = 1;
    // A packet is shorter than a block, so its rest ends here, and a header is never looked for behind the block.
    static_assert(1 + MaxPacketWords < BlockWords);
    if (missing > 0) {
        std::memcpy(current->wire() + 4 * written, block + 4, 4 * missing);
        i += std::exchange(missing, 0);
        const std::uint32_t headerWord = current->header;
        finish(delivery, std::move(current), headerWord);
    }
    while (i < BlockWords) {
        const std::uint32_t word = wordAt(block, i);
        if (word == 0)
            return;
        const std::uint32_t total = wordsOfHeader(word);
        const std::uint32_t space = BlockWords - i;
        PacketPtr packet = delivery.getEmptyPacketBuffer();
        if (total <= space) {
            copyPacket(packet->wire(), block + 4 * i, total);
            finish(delivery, std::move(packet), word);
        } else {
            std::memcpy(packet->wire(), block + 4 * i, 4 * space);
            current = std::move(packet);
            written = space;
            missing = total - space;
        }
        i += total;
    }
}

} // namespace keplin
