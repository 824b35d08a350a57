#pragma once
// A board that writes down every transfer and answers as the test says: for drivers whose bytes on the wire matter.

#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Plugged.h"

namespace usb_tests {

/// One transfer as the board saw it. The head is "40 b1 0001 0000 8" for a control request (request type, code, value,
/// index, length), "out 01 1024" and "in 81 1024" for bulk; the data are what the host sent.
struct Transfer {
    std::string head;
    std::vector<std::uint8_t> data;
    friend bool operator==(const Transfer&, const Transfer&) = default;
    friend void PrintTo(const Transfer& transfer, std::ostream* stream)
    {
        *stream << transfer.head << ':' << std::hex;
        for (std::size_t i = 0; i < std::min<std::size_t>(transfer.data.size(), 64); ++i)
            *stream << ' ' << unsigned{transfer.data[i]};
        *stream << std::dec;
    }
};

/// Transfers are numbered from 0. All succeed in full length unless a test says otherwise; reads give readByte().
class ScriptedBoard final : public emulation::Device {
public:
    ScriptedBoard(std::uint16_t vendor, std::uint16_t product, std::vector<std::uint8_t> bulkEndpoints)
        : vendorNumber(vendor), productNumber(product), bulk(std::move(bulkEndpoints))
    {}

    static std::uint8_t readByte(std::size_t transfer, std::size_t at)
    {
        return static_cast<std::uint8_t>(transfer * 31 + at * 7 + at / 256 + 1);
    }

    /// Ends the transfer with this number: bytes moved, or a negative errno.
    void answer(std::size_t transfer, int result)
    {
        const std::lock_guard lock(mutex);
        answers[transfer] = result;
    }
    /// The transfer with this number is never answered.
    void hold(std::size_t transfer) { answer(transfer, emulation::pending); }

    std::vector<Transfer> transfers() const
    {
        const std::lock_guard lock(mutex);
        return seen;
    }
    std::vector<std::string> heads() const
    {
        std::vector<std::string> all;
        for (const Transfer& transfer : transfers())
            all.push_back(transfer.head);
        return all;
    }
    void waitFor(std::size_t count)
    {
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return seen.size() >= count; });
    }

    std::uint16_t vendorId() const override { return vendorNumber; }
    std::uint16_t productId() const override { return productNumber; }
    std::string text(int) const override { return "scripted"; }
    std::vector<std::uint8_t> endpoints() const override { return bulk; }

    int controlTransfer(const emulation::Setup& setup, std::span<std::uint8_t> data) override
    {
        char head[48];
        std::snprintf(head, sizeof head, "%02x %02x %04x %04x %u", unsigned{setup.bmRequestType},
                      unsigned{setup.bRequest}, unsigned{setup.wValue}, unsigned{setup.wIndex},
                      unsigned{setup.wLength});
        if ((setup.bmRequestType & 0x80) != 0)
            return read(head, data);
        return note({head, {data.begin(), data.end()}}, data.size());
    }
    int bulkOut(std::uint8_t endpoint, std::span<const std::uint8_t> data) override
    {
        return note({bulkHead("out", endpoint, data.size()), {data.begin(), data.end()}}, data.size());
    }
    int bulkIn(std::uint8_t endpoint, std::span<std::uint8_t> data) override
    {
        return read(bulkHead("in", endpoint, data.size()), data);
    }

private:
    static std::string bulkHead(const char* direction, unsigned endpoint, std::size_t size)
    {
        char head[48];
        std::snprintf(head, sizeof head, "%s %02x %zu", direction, endpoint, size);
        return head;
    }
    int read(std::string head, std::span<std::uint8_t> data)
    {
        const int result = note({std::move(head), {}}, data.size());
        for (int i = 0; i < result; ++i)
            data[static_cast<std::size_t>(i)] = readByte(transfers().size() - 1, static_cast<std::size_t>(i));
        return result;
    }
    int note(Transfer transfer, std::size_t size)
    {
        const std::lock_guard lock(mutex);
        if (!holding)
            seen.push_back(std::move(transfer)); // else it is tried once more
        changed.notify_all();
        const auto found = answers.find(seen.size() - 1);
        const int result = found == answers.end() ? static_cast<int>(size) : found->second;
        holding = result == emulation::pending;
        return result;
    }

    const std::uint16_t vendorNumber;
    const std::uint16_t productNumber;
    const std::vector<std::uint8_t> bulk;
    mutable std::mutex mutex; // guards all below
    std::condition_variable changed;
    std::vector<Transfer> seen;
    std::map<std::size_t, int> answers;
    bool holding = false;
};

/// A scripted board that is plugged in.
struct Scripted : Plugged<ScriptedBoard> {
    using Plugged::Plugged;
    /// From now on submissions fail with this errno, before the board sees them.
    void failSubmissions(int error)
    {
        handle.setFaults({.submit = [error](std::uint8_t) { return error; }});
    }
};

} // namespace usb_tests
