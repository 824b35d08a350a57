// The functions between events and words. Compiled once for each family.

#include <string>

#include "tessel/family/Family.h"
#include "tessel/family/WordText.h"
#include VORNA_FAMILY_HEADER_IN(event, Codec)
#include "trovi/python/Local.h"

namespace {

namespace words = VORNA_FAMILY::event::words;

std::string outputDoc()
{
    return "The event of a 64-bit word of the chip's event stream. Every word is one:\n\n" +
           tessel::word::tableLines<words::OutputWords>();
}

std::string inputDoc()
{
    return "What a word towards the chip says, the first of these that it fits:\n\n" +
           tessel::word::tableLines<words::InputWords>() + "\nWith with_timestamp a RouterEvent is read as " +
           tessel::word::wordText<words::TimedSpikeWord>();
}

std::string encodeDoc()
{
    return "The word by which an event goes through the chip's input interface: those of decode_input_event, and\n\n" +
           tessel::word::wordLines<words::SpikeWord, words::WriteRegisterWord>() +
           "\n0 for ReadRegisterValue, WriteMemoryValue, ReadMemoryValue and ReadProbe. Members are not cut: one that "
           "is wider than its place overwrites its neighbours.";
}

} // namespace

VORNA_BIND_FREE_FUNCTION(VORNA_FAMILY_TEXT "::event::decodeOutputEvent", &VORNA_FAMILY::event::decodeOutputEvent,
                         outputDoc().c_str(), "word")
VORNA_BIND_FREE_FUNCTION(VORNA_FAMILY_TEXT "::event::decodeInputEvent", &VORNA_FAMILY::event::decodeInputEvent,
                         inputDoc().c_str(), "word, with_timestamp")
VORNA_BIND_FREE_FUNCTION(VORNA_FAMILY_TEXT_OF(VORNA_FAMILY_FUNCTION(EncodeInputInterfaceEvent)),
                         &VORNA_FAMILY::event::encodeInputInterfaceEvent, encodeDoc().c_str(), "event")
VORNA_BIND_FREE_FUNCTION(VORNA_FAMILY_TEXT "::event::encodeInputInterfaceEvent",
                         &VORNA_FAMILY::event::encodeInputInterfaceEvent, encodeDoc().c_str(), "event")
