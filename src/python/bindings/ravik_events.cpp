// Python classes of what is sent to a ravik chip, and the functions between events and words.

#include <string>

#include "ravik/event/Codec.h"
#include "tessel/family/WordText.h"
#include "trovi/python/Local.h"
#include "trovi/python/Remote.h"

#define VORNA_FAMILY ravik
#include "chip_events.inc"
#undef VORNA_FAMILY

namespace {

std::string outputDoc()
{
    return "The event of a 64-bit word of the chip's event stream. Every word is one:\n\n" +
           tessel::word::tableLines<ravik::event::words::OutputWords>();
}

std::string inputDoc()
{
    return "What a word towards the chip says, the first of these that it fits:\n\n" +
           tessel::word::tableLines<ravik::event::words::InputWords>() +
           "\nWith with_timestamp a RouterEvent is read as " +
           tessel::word::wordText<ravik::event::words::TimedSpikeWord>();
}

std::string encodeDoc()
{
    return "The word by which an event goes through the chip's input interface: those of decode_input_event, and\n\n" +
           tessel::word::wordLines<ravik::event::words::SpikeWord, ravik::event::words::WriteRegisterWord>() +
           "\n0 for ReadRegisterValue, WriteMemoryValue, ReadMemoryValue and ReadProbe. Members are not cut: one that "
           "is "
           "wider than its place reaches into its neighbours.";
}

} // namespace

VORNA_BIND_FREE_FUNCTION("ravik::event::decodeOutputEvent", &ravik::event::decodeOutputEvent, outputDoc().c_str(),
                         "word")
VORNA_BIND_FREE_FUNCTION("ravik::event::decodeInputEvent", &ravik::event::decodeInputEvent, inputDoc().c_str(),
                         "word, with_timestamp")
VORNA_BIND_FREE_FUNCTION("ravikEncodeInputInterfaceEvent", &ravik::event::encodeInputInterfaceEvent,
                         encodeDoc().c_str(), "event")
VORNA_BIND_FREE_FUNCTION("ravik::event::encodeInputInterfaceEvent", &ravik::event::encodeInputInterfaceEvent,
                         encodeDoc().c_str(), "event")
