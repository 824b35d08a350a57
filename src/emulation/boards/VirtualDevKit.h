#pragma once
// An emulated dev kit, as a script or test plugs it in.

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "emulation/boards/DevKit.h"
#include "emulation/boards/DevKitOptions.h"
#include "emulation/boards/Fx3BootDevice.h"
#include "emulation/boards/VirtualBoard.h"

namespace emulation {

/// A dev kit, with its FX3 in the boot state or running its firmware.
class VirtualDevKit final : public VirtualBoard {
public:
    explicit VirtualDevKit(const DevKitOptions& options);
    ~VirtualDevKit() override;

    bool isRunning() const; ///< its firmware, under the ids of a dev kit
    /// Waits until the firmware runs and the kit has come back under its ids, at most `timeoutMs`. @return isRunning()
    bool waitUntilRunning(std::int64_t timeoutMs) const;

    /// Those of the boot state and those with firmware, together.
    BoardCounters counters() const override;
    std::vector<std::string> problems() const override;

    std::vector<std::uint8_t> ramBytes(std::uint32_t address, std::uint32_t size) const;
    std::vector<std::uint8_t> flashBytes(std::uint32_t address, std::uint32_t size) const;
    void setFlashBytes(std::uint32_t address, const std::vector<std::uint8_t>& bytes);
    std::uint64_t erasedSectors() const { return kit->flashCounters().erasedSectors; }
    std::uint64_t programmedBytes() const { return kit->flashCounters().programmedBytes; }
    std::uint64_t spoiledBytes() const { return kit->flashCounters().spoiledBytes; }
    std::uint64_t fpgaResets() const { return kit->fpgaResets(); }

private:
    VirtualDevKit(const DevKitOptions& options, std::shared_ptr<DevKit> withFirmware);
    const std::shared_ptr<FaultyWire>& wire() const VORNA_REQUIRES(mutex) override
    {
        return running ? kitWire : bootWire;
    }
    void powerUp() VORNA_REQUIRES(mutex) override;
    bool isStarted() const VORNA_REQUIRES(mutex) override { return !running && boot->isStarted(); }
    void started() VORNA_REQUIRES(mutex) override;

    const bool hasFirmware; // at power-up
    bool running VORNA_GUARDED_BY(mutex);
    const std::shared_ptr<DevKit> kit;
    const std::shared_ptr<Fx3BootDevice> boot;
    const std::shared_ptr<FaultyWire> bootWire;
    const std::shared_ptr<FaultyWire> kitWire;
};

} // namespace emulation

template <>
struct trovi::RegisterBase<emulation::VirtualDevKit> {
    using type = emulation::VirtualBoard;
};

template <>
constexpr auto trovi::registerMemberFunctions<emulation::VirtualDevKit>()
{
    using emulation::VirtualDevKit;
    return functions(
        function("isRunning", &VirtualDevKit::isRunning, "True while it runs its firmware; False in the boot state."),
        blockingFunction("waitUntilRunning", &VirtualDevKit::waitUntilRunning,
                         "Waits up to timeoutMs milliseconds for the firmware to run; True if it does.", "timeoutMs"),
        function("ramBytes", &VirtualDevKit::ramBytes,
                 "What the FX3 has got into its RAM while in the boot state. IndexError for what isn't RAM.",
                 "address, size"),
        function("flashBytes", &VirtualDevKit::flashBytes,
                 "What the flash holds, 16 MiB, 255 where it is erased. IndexError beyond its end.", "address, size"),
        function("setFlashBytes", &VirtualDevKit::setFlashBytes, "Sets what the flash holds, erased or not.",
                 "address, bytes"),
        function("erasedSectors", &VirtualDevKit::erasedSectors, "Sectors of 64 KiB that the host has erased."),
        function("programmedBytes", &VirtualDevKit::programmedBytes, "Bytes that the host has written to flash."),
        function("spoiledBytes", &VirtualDevKit::spoiledBytes,
                 "Bytes of these that didn't come out as written, since the flash wasn't erased."),
        function("fpgaResets", &VirtualDevKit::fpgaResets, "How often the host has reset the FPGA."));
}

template <>
constexpr const char* trovi::registerDoc<emulation::VirtualDevKit>()
{
    return "An emulated dev kit: an FX3 with RAM and flash, and an FPGA with a chip behind it.";
}
