#include "emulation/boards/Fx3BootDevice.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace emulation {
namespace {

constexpr std::uint8_t ramRequest = 0xA0;
constexpr std::size_t wordSize = 4;

struct RegionRow {
    std::uint32_t begin;
    std::size_t size;
};
constexpr RegionRow regionRows[] = {
    {0x0000'0000, 16 * 1024},  // instructions, tightly coupled
    {0x1000'0000, 8 * 1024},   // data, tightly coupled
    {0x4000'0000, 512 * 1024}, // system
};

// The region in which `size` bytes from `address` on lie whole; null: none.
template <class Regions>
auto regionOf(Regions& regions, std::uint32_t address, std::size_t size) -> decltype(&regions.front())
{
    for (auto& region : regions)
        if (address >= region.begin && address - region.begin <= region.bytes.size() &&
            size <= region.bytes.size() - (address - region.begin))
            return &region;
    return nullptr;
}

std::string hexadecimal(std::uint32_t value)
{
    char text[11];
    std::snprintf(text, sizeof text, "0x%08X", value);
    return text;
}

} // namespace

Fx3BootDevice::Fx3BootDevice(std::string serialNumber) : serial(std::move(serialNumber))
{
    for (const RegionRow& row : regionRows)
        regions.push_back({row.begin, std::vector<std::uint8_t>(row.size), std::vector<bool>(row.size)});
}

void Fx3BootDevice::powerUp()
{
    const util::Lock lock(mutex);
    for (Region& region : regions) {
        std::fill(region.bytes.begin(), region.bytes.end(), std::uint8_t{0});
        std::fill(region.written.begin(), region.written.end(), false);
    }
    whole = true;
    started = false;
}

void Fx3BootDevice::setOnStart(std::function<void(std::uint32_t)> action)
{
    const util::Lock lock(mutex);
    onStart = std::move(action);
}

std::string Fx3BootDevice::text(int index) const
{
    switch (index) {
    case 1:
        return "vorna";
    case 2:
        return "emulated FX3 in boot state";
    case 3:
        return serial;
    default:
        return {};
    }
}

int Fx3BootDevice::controlTransfer(const Setup& setup, std::span<std::uint8_t> data)
{
    std::function<void(std::uint32_t)> action;
    const auto address = static_cast<std::uint32_t>(setup.wValue | setup.wIndex << 16);
    int result = 0;
    {
        const util::Lock lock(mutex);
        ++counted.controlTransfers;
        if (setup.bRequest != ramRequest)
            return refuse("a request other than 0xA0 in the boot state");
        const bool isJump = setup.wLength == 0 && (setup.bmRequestType & 0x80) == 0;
        result = isJump ? jump(address) : access(setup, data, address);
        if (isJump && result == 0)
            action = onStart;
    }
    if (action)
        action(address);
    return result;
}

int Fx3BootDevice::access(const Setup& setup, std::span<std::uint8_t> data, std::uint32_t address)
{
    Region* const region = regionOf(regions, address, data.size());
    const bool reads = (setup.bmRequestType & 0x80) != 0;
    if (region == nullptr) {
        whole = whole && reads;
        return refuse("no RAM for " + std::to_string(data.size()) + " bytes at " + hexadecimal(address));
    }
    const auto offset = static_cast<std::ptrdiff_t>(address - region->begin);
    const auto count = static_cast<std::ptrdiff_t>(data.size());
    if (reads) {
        std::copy_n(region->bytes.begin() + offset, count, data.begin());
    } else {
        std::copy(data.begin(), data.end(), region->bytes.begin() + offset);
        std::fill_n(region->written.begin() + offset, count, true);
        if (data.size() < setup.wLength) {
            whole = false;
            noted.note("of " + std::to_string(setup.wLength) + " bytes for " + hexadecimal(address) + " only " +
                       std::to_string(data.size()) + " came");
        }
    }
    return static_cast<int>(count);
}

int Fx3BootDevice::jump(std::uint32_t address)
{
    const Region* const region = regionOf(regions, address, wordSize);
    if (region == nullptr)
        return refuse("a jump to " + hexadecimal(address) + ", which isn't RAM");
    const auto entry = region->written.begin() + static_cast<std::ptrdiff_t>(address - region->begin);
    if (!std::all_of(entry, entry + wordSize, [](bool written) { return written; }))
        return refuse("a jump to " + hexadecimal(address) + ", where nothing was written");
    if (!whole)
        return refuse("a jump into an image that didn't come whole");
    started = true;
    return 0;
}

int Fx3BootDevice::refuse(std::string problem)
{
    ++counted.refusedTransfers;
    noted.note(std::move(problem));
    return -EPIPE;
}

int Fx3BootDevice::refuseBulk()
{
    const util::Lock lock(mutex);
    return refuse("a bulk transfer in the boot state");
}

bool Fx3BootDevice::isStarted() const
{
    const util::Lock lock(mutex);
    return started;
}

std::vector<std::uint8_t> Fx3BootDevice::ram(std::uint32_t address, std::size_t size) const
{
    const util::Lock lock(mutex);
    const Region* const region = regionOf(regions, address, size);
    if (region == nullptr)
        throw std::out_of_range("the FX3 has no RAM for " + std::to_string(size) + " bytes at " + hexadecimal(address));
    const auto begin = region->bytes.begin() + static_cast<std::ptrdiff_t>(address - region->begin);
    return {begin, begin + static_cast<std::ptrdiff_t>(size)};
}

BoardCounters Fx3BootDevice::counters() const
{
    const util::Lock lock(mutex);
    BoardCounters result = counted;
    result.problems = noted.count();
    return result;
}

std::vector<std::string> Fx3BootDevice::problems() const
{
    const util::Lock lock(mutex);
    return noted.texts();
}

} // namespace emulation
