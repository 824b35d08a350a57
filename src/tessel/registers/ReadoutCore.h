#pragma once
// The registers of the readout. Registers 0 to 11 are one stream of small values, which run on from register to
// register.

#include "tessel/registers/Register.h"

namespace tessel::registers::readoutcore {

/// The delays of the 16 readout neurons: clock delay and reset delay of neuron 0, then of neuron 1, and so on.
using Delays = RegisterStream<3, 32>;
inline constexpr std::size_t delaysPerNeuron = 2;
inline constexpr std::array<const char*, delaysPerNeuron> delayNames{"clockDelay", "resetDelay"};
inline constexpr std::array<const char*, delaysPerNeuron> delayMeanings{"delay of the neuron's clock",
                                                                        "delay of the neuron's reset"};

/// A register that holds its part of the delays; its fields follow from the stream.
template <class Self, std::uint16_t Number, std::uint16_t ResetValue>
struct DelayRegister : Register<Self, Number, ResetValue, 0xFF> {
    using Register<Self, Number, ResetValue, 0xFF>::Register;
    static constexpr const char* meaning = "delays of the readout neurons";
    static constexpr auto fields = []<std::size_t... I>(std::index_sequence<I...>)
    {
        return std::tuple(
            Field<Self, Delays::piece(Number, I).low, Delays::piece(Number, I).width, Delays::piece(Number, I).from>{
                delayNames[Delays::piece(Number, I).value % delaysPerNeuron],
                delayMeanings[Delays::piece(Number, I).value % delaysPerNeuron],
                int(Delays::piece(Number, I).value / delaysPerNeuron)}...);
    }
    (std::make_index_sequence<Delays::pieceCount(Number)>());
};

// clang-format off
#define VORNA_DELAY_REGISTER_(digits, reset)                                                   \
    struct Register##digits : DelayRegister<Register##digits, 1##digits - 100, reset> {        \
        using DelayRegister::DelayRegister;                                                    \
    };                                                                                         \
    static_assert(tiles<Register##digits>(), "the pieces of the stream fill their register")
VORNA_DELAY_REGISTER_(00, 0x3C);
VORNA_DELAY_REGISTER_(01, 0xCF);
VORNA_DELAY_REGISTER_(02, 0xF3);
VORNA_DELAY_REGISTER_(03, 0x3C);
VORNA_DELAY_REGISTER_(04, 0xCF);
VORNA_DELAY_REGISTER_(05, 0xF3);
VORNA_DELAY_REGISTER_(06, 0x3C);
VORNA_DELAY_REGISTER_(07, 0xCF);
VORNA_DELAY_REGISTER_(08, 0xF3);
VORNA_DELAY_REGISTER_(09, 0x3C);
VORNA_DELAY_REGISTER_(10, 0xCF);
VORNA_DELAY_REGISTER_(11, 0xF3);
#undef VORNA_DELAY_REGISTER_

VORNA_REGISTER(12, 0x00, 0xFF, "threshold",
    // bit, width, from
    (0, 8, 0, thresholdLow, "threshold: low byte"))
VORNA_REGISTER(13, 0x00, 0xFF, "threshold",
    (0, 8, 8, thresholdHigh, "threshold: high byte"))
VORNA_REGISTER(14, 0x02, 0x0F, "low-pass filter, input",
    (0, 1, 0, lowPassFilterDisable,       "there is no moving average"),
    (1, 1, 0, lowPassFilter32Not16,       "length of the moving average: 32 when set, 16 when clear"),
    (2, 2, 0, inputAddressInterpretation, "how the address of a spike is read"))
VORNA_REGISTER(15, 0x00, 0x0F, "probe",
    (0, 4, 0, probePoint, "channel that is led out"))
// clang-format on

using Registers =
    RegisterList<Register00, Register01, Register02, Register03, Register04, Register05, Register06, Register07,
                 Register08, Register09, Register10, Register11, Register12, Register13, Register14, Register15>;
static_assert(Registers::count == 16);
static_assert(Delays::registerCount == Register12::number, "the stream ends where the other registers begin");

// After a reset each neuron has a clock delay of 4 and a reset delay of 7.
static_assert([] {
    std::array<std::uint8_t, Delays::count> values{};
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = i % 2 == 0 ? 4 : 7;
    return Delays::cut(values, 0) == Register00::resetValue && Delays::cut(values, 1) == Register01::resetValue &&
           Delays::cut(values, 2) == Register02::resetValue && Delays::cut(values, 11) == Register11::resetValue;
}());

} // namespace tessel::registers::readoutcore
