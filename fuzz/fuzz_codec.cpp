// Words of the chips. Every word is an event, the quick decoder agrees with the tables, and what was read of a word is
// written as one that reads the same; tessel and ravik agree in all of it.

#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "ravik/event/Codec.h"
#include "tessel/event/Codec.h"
#include "trovi/Serial.h"

namespace {

void require(bool holds)
{
    if (!holds)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    for (; size >= sizeof(std::uint64_t); data += sizeof(std::uint64_t), size -= sizeof(std::uint64_t)) {
        std::uint64_t word;
        std::memcpy(&word, data, sizeof word);

        const auto output = tessel::event::decodeOutputEvent(word);
        require(output == tessel::event::words::OutputWords::cut<tessel::event::OutputEvent>(word));
        require(trovi::serializeToBuffer(output) == trovi::serializeToBuffer(ravik::event::decodeOutputEvent(word)));

        for (const bool withTimestamp : {false, true}) {
            const auto input = tessel::event::decodeInputEvent(word, withTimestamp);
            require(trovi::serializeToBuffer(input) ==
                    trovi::serializeToBuffer(ravik::event::decodeInputEvent(word, withTimestamp)));
            // a spike's time is read where no time is written
            if (!std::holds_alternative<tessel::event::Spike>(input))
                require(tessel::event::decodeInputEvent(tessel::event::encodeInputInterfaceEvent(input),
                                                        withTimestamp) == input);
        }
    }
    return 0;
}
