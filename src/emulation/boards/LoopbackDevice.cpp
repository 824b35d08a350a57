#include "emulation/boards/LoopbackDevice.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace emulation {

LoopbackDevice::LoopbackDevice(std::string serialNumber, std::uint16_t vendorNumber, std::uint16_t productNumber)
    : serial(std::move(serialNumber)), vendor(vendorNumber), product(productNumber), memory(memorySize)
{}

void LoopbackDevice::answerNext(std::uint8_t endpoint, int result, int times)
{
    {
        const util::Lock lock(mutex);
        auto& answers = scripted[endpoint];
        answers.insert(answers.end(), static_cast<std::size_t>(std::max(times, 0)), result);
    }
    wake();
}

void LoopbackDevice::mute(std::uint8_t endpoint)
{
    const util::Lock lock(mutex);
    muted.insert(endpoint);
}

void LoopbackDevice::unmute(std::uint8_t endpoint)
{
    {
        const util::Lock lock(mutex);
        muted.erase(endpoint);
    }
    wake();
}

void LoopbackDevice::setReadDelay(std::chrono::microseconds delay)
{
    const util::Lock lock(mutex);
    readDelay = delay;
}

void LoopbackDevice::setFreeRunning(bool on)
{
    {
        const util::Lock lock(mutex);
        freeRunning = on;
    }
    wake();
}

void LoopbackDevice::send(std::span<const std::uint8_t> bytes)
{
    {
        const util::Lock lock(mutex);
        loop.insert(loop.end(), bytes.begin(), bytes.end());
    }
    wake();
}

LoopbackDevice::Counters LoopbackDevice::counters(std::uint8_t endpoint) const
{
    const util::Lock lock(mutex);
    const auto found = counted.find(endpoint);
    return found == counted.end() ? Counters() : found->second;
}

std::optional<Setup> LoopbackDevice::lastSetup() const
{
    const util::Lock lock(mutex);
    return latestSetup;
}

std::string LoopbackDevice::text(int index) const
{
    switch (index) {
    case 1:
        return "vorna";
    case 2:
        return "emulated loop-back device";
    case 3:
        return serial;
    default:
        return {};
    }
}

int LoopbackDevice::controlTransfer(const Setup& setup, std::span<std::uint8_t> data)
{
    const util::Lock lock(mutex);
    latestSetup = setup;
    if (const auto answer = answerOutOfTurn(0, data.size())) {
        if (*answer > 0 && (setup.bmRequestType & 0x80) != 0)
            std::fill_n(data.begin(), *answer, std::uint8_t{0});
        return count(0, *answer);
    }
    return count(0, accessMemory(setup, data));
}

int LoopbackDevice::bulkOut(std::uint8_t endpoint, std::span<const std::uint8_t> data)
{
    {
        const util::Lock lock(mutex);
        if (const auto answer = answerOutOfTurn(endpoint, data.size()))
            return count(endpoint, *answer);
        if (!freeRunning)
            loop.insert(loop.end(), data.begin(), data.end());
        count(endpoint, static_cast<int>(data.size()));
    }
    wake();
    return static_cast<int>(data.size());
}

int LoopbackDevice::bulkIn(std::uint8_t endpoint, std::span<std::uint8_t> data)
{
    const util::Lock lock(mutex);
    if (const auto answer = answerOutOfTurn(endpoint, data.size())) {
        if (*answer > 0)
            std::fill_n(data.begin(), *answer, std::uint8_t{0});
        return count(endpoint, *answer);
    }
    if (mustWait(data.size()))
        return pending;
    if (freeRunning)
        std::fill(data.begin(), data.end(), std::uint8_t{0});
    return count(endpoint, freeRunning ? static_cast<int>(data.size()) : takeFromLoop(data));
}

std::optional<std::chrono::steady_clock::time_point> LoopbackDevice::pollAfter() const
{
    const util::Lock lock(mutex);
    return delay.end();
}

void LoopbackDevice::cancelled(std::uint8_t endpoint)
{
    const util::Lock lock(mutex);
    if (endpoint == readEndpoint)
        delay.cancel();
}

// A scripted answer, or `pending` of a muted endpoint.
std::optional<int> LoopbackDevice::answerOutOfTurn(std::uint8_t endpoint, std::size_t length)
{
    if (auto& answers = scripted[endpoint]; !answers.empty()) {
        const int answer = answers.front();
        answers.pop_front();
        return std::min(answer, static_cast<int>(length));
    }
    if (muted.contains(endpoint))
        return pending;
    return std::nullopt;
}

bool LoopbackDevice::mustWait(std::size_t length)
{
    if (readDelay.count() > 0 && !delay.isOver(std::chrono::steady_clock::now(), readDelay))
        return true;
    delay.reset();
    return !freeRunning && loop.empty() && length > 0;
}

int LoopbackDevice::accessMemory(const Setup& setup, std::span<std::uint8_t> data)
{
    const std::size_t begin = setup.wValue;
    if (setup.bRequest != memoryRequest || data.size() > memory.size() - begin)
        return -EPIPE;
    const auto place = memory.begin() + static_cast<std::ptrdiff_t>(begin);
    if ((setup.bmRequestType & 0x80) != 0)
        std::copy_n(place, data.size(), data.begin());
    else
        std::copy(data.begin(), data.end(), place);
    return static_cast<int>(data.size());
}

int LoopbackDevice::takeFromLoop(std::span<std::uint8_t> data)
{
    const std::size_t taken = std::min(data.size(), loop.size());
    const auto end = loop.begin() + static_cast<std::ptrdiff_t>(taken);
    std::copy(loop.begin(), end, data.begin());
    loop.erase(loop.begin(), end);
    return static_cast<int>(taken);
}

int LoopbackDevice::count(std::uint8_t endpoint, int result)
{
    if (result == pending)
        return result;
    Counters& counter = counted[endpoint];
    if (result < 0) {
        ++counter.faults;
    } else {
        ++counter.transfers;
        counter.bytes += static_cast<std::uint64_t>(result);
    }
    return result;
}

} // namespace emulation
