#include "emulation/usb/Descriptors.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>

namespace emulation {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Kinds of descriptor and their sizes, from chapter 9 of the USB 2.0 standard.
enum Kind : std::uint8_t { deviceKind = 1, configurationKind = 2, textKind = 3, interfaceKind = 4, endpointKind = 5 };
constexpr std::uint8_t deviceSize = 18, configurationSize = 9, interfaceSize = 9, endpointSize = 7;
constexpr std::size_t longestText = (255 - 2) / 2; // a length byte counts the head and two bytes per character
constexpr std::size_t mostEndpoints = 30;          // 15 each way
constexpr std::uint8_t getDescriptor = 6;
constexpr std::uint8_t vendorClass = 0xFF, bulk = 2, busPowered = 0x80, hundredMilliampere = 50;

std::uint8_t low(std::size_t value) { return static_cast<std::uint8_t>(value & 0xFF); }
std::uint8_t high(std::size_t value) { return static_cast<std::uint8_t>(value >> 8 & 0xFF); }

Bytes deviceDescriptor(const Device& device)
{
    return {deviceSize,
            deviceKind,
            0x00,
            0x02 /* USB 2.0 */,
            0,
            0,
            0,
            64 /* packet size of endpoint 0 */,
            low(device.vendorId()),
            high(device.vendorId()),
            low(device.productId()),
            high(device.productId()),
            0x00,
            0x01 /* release 1.0 */,
            1,
            2,
            3 /* texts: manufacturer, product, serial */,
            1 /* configuration */};
}

Bytes configurationDescriptor(const Device& device)
{
    const auto endpoints = device.endpoints();
    const std::size_t total = configurationSize + interfaceSize + endpointSize * endpoints.size();
    const auto parts =
        std::to_array<std::uint8_t>({configurationSize, configurationKind, low(total), high(total), 1 /* interface */,
                                     1 /* its number */, 0, busPowered, hundredMilliampere, //
                                     interfaceSize, interfaceKind, 0, 0, low(endpoints.size()), vendorClass, 0, 0, 0});
    Bytes bytes(parts.begin(), parts.end());
    for (const std::uint8_t endpoint : endpoints)
        for (const std::uint8_t byte : {endpointSize, std::uint8_t{endpointKind}, endpoint, bulk, std::uint8_t{0x00},
                                        std::uint8_t{0x02} /* 512 bytes */, std::uint8_t{0}})
            bytes.push_back(byte);
    return bytes;
}

Bytes textDescriptor(const std::string& text)
{
    Bytes bytes{low(2 + 2 * text.size()), textKind};
    for (const char c : text) // UTF-16, of which ASCII is a part
        bytes.insert(bytes.end(), {static_cast<std::uint8_t>(c), 0});
    return bytes;
}

} // namespace

std::vector<std::uint8_t> descriptors(const Device& device)
{
    for (int index = 1; index <= 3; ++index) {
        const std::string text = device.text(index);
        if (text.size() > longestText)
            throw std::invalid_argument("a text of a USB device has at most 126 characters");
        if (!std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; }))
            throw std::invalid_argument("a text of a USB device has printable characters of ASCII only");
    }
    if (device.endpoints().size() > mostEndpoints)
        throw std::invalid_argument("a USB device has at most 30 bulk endpoints");
    Bytes bytes = deviceDescriptor(device);
    const Bytes configuration = configurationDescriptor(device);
    bytes.insert(bytes.end(), configuration.begin(), configuration.end());
    return bytes;
}

int standardRequest(const Device& device, const Setup& setup, std::span<std::uint8_t> data)
{
    const bool answers = (setup.bmRequestType & 0x80) != 0;
    if (!answers)
        return 0;
    if (setup.bRequest != getDescriptor)
        return -EPIPE;
    const int index = setup.wValue & 0xFF;
    Bytes bytes;
    switch (setup.wValue >> 8) {
    case deviceKind:
        bytes = deviceDescriptor(device);
        break;
    case configurationKind:
        bytes = configurationDescriptor(device);
        break;
    case textKind:
        if (index == 0)
            bytes = {4, textKind, 0x09, 0x04}; // the languages: English (United States)
        else if (const std::string text = device.text(index); !text.empty())
            bytes = textDescriptor(text);
        break;
    default:
        break;
    }
    if (bytes.empty())
        return -EPIPE;
    const std::size_t count = std::min(bytes.size(), data.size());
    std::copy_n(bytes.begin(), count, data.begin());
    return static_cast<int>(count);
}

} // namespace emulation
