// Python classes of what is sent to a tessel chip, and the functions between events and words.

#include <string>

#include "tessel/event/Codec.h"
#include "tessel/family/WordText.h"
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

#define VORNA_FAMILY tessel
#include "chip_events.inc"
#undef VORNA_FAMILY

namespace {

std::string outputDoc()
{
    return "The event of a 64-bit word of the chip's event stream. Every word is one:\n\n" +
           tessel::word::tableLines<tessel::event::words::OutputWords>();
}

std::string inputDoc()
{
    return "What a word towards the chip says, the first of these that it fits:\n\n" +
           tessel::word::tableLines<tessel::event::words::InputWords>() +
           "\nWith with_timestamp a RouterEvent is read as " +
           tessel::word::wordText<tessel::event::words::TimedSpikeWord>();
}

std::string encodeDoc()
{
    return "The word by which an event goes through the chip's input interface: those of decode_input_event, and\n\n" +
           tessel::word::wordLines<tessel::event::words::SpikeWord, tessel::event::words::WriteRegisterWord>() +
           "\n0 for ReadRegisterValue, WriteMemoryValue, ReadMemoryValue and ReadProbe. Members are not cut: one that "
           "is "
           "wider than its place reaches into its neighbours.";
}

} // namespace

VORNA_BIND_FREE_FUNCTION("tessel::event::decodeOutputEvent", &tessel::event::decodeOutputEvent, outputDoc().c_str(),
                         "word")
VORNA_BIND_FREE_FUNCTION("tessel::event::decodeInputEvent", &tessel::event::decodeInputEvent, inputDoc().c_str(),
                         "word, with_timestamp")
VORNA_BIND_FREE_FUNCTION("tesselEncodeInputInterfaceEvent", &tessel::event::encodeInputInterfaceEvent,
                         encodeDoc().c_str(), "event")
VORNA_BIND_FREE_FUNCTION("tessel::event::encodeInputInterfaceEvent", &tessel::event::encodeInputInterfaceEvent,
                         encodeDoc().c_str(), "event")
