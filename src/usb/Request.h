#pragma once
// The vendor requests of a board as constants, from which its driver makes what it sends.
//
//   inline constexpr usb::Request eraseSector{.use = "erase a flash sector", .code = 0xB0, .direction = ...,
//                                             .wValue = usb::constant(1), .wIndex = usb::lowHalf, ...};
//   door.controlWrite(eraseSector.setup(sector), nothing, eraseSector.timeoutMs);

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "usb/SetupPacket.h"

namespace usb {

/// bmRequestType of the requests that boards define for themselves.
enum class Direction : std::uint8_t {
    write = 0x40, ///< from the host
    read = 0xC0   ///< to the host
};

/// What a 16-bit field of a request carries: a constant, or one half of the request's 32-bit argument.
struct RequestField {
    enum class Carries : std::uint8_t { constant, lowHalf, highHalf };
    Carries carries = Carries::constant;
    std::uint16_t value = 0; ///< of a constant

    constexpr std::uint16_t of(std::uint32_t argument) const
    {
        switch (carries) {
        case Carries::lowHalf:
            return static_cast<std::uint16_t>(argument & 0xFFFF);
        case Carries::highHalf:
            return static_cast<std::uint16_t>(argument >> 16);
        case Carries::constant:
            break;
        }
        return value;
    }
};

constexpr RequestField constant(std::uint16_t value) { return {RequestField::Carries::constant, value}; }
inline constexpr RequestField lowHalf{RequestField::Carries::lowHalf};
inline constexpr RequestField highHalf{RequestField::Carries::highHalf};

struct Request {
    std::string_view use; ///< in a few words
    std::uint8_t code = 0;
    Direction direction = Direction::write;
    RequestField wValue{};
    RequestField wIndex{};
    std::size_t maxBytes = 0; ///< of data
    int timeoutMs = 2000;     ///< after which the transfer is renewed

    /// @param argument  the number whose halves are `lowHalf` and `highHalf`: an address, a sector
    constexpr USBSetupPacket setup(std::uint32_t argument = 0) const
    {
        return {static_cast<std::uint8_t>(direction), code, wValue.of(argument), wIndex.of(argument), 0};
    }
};

} // namespace usb
