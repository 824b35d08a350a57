#pragma once
// Boards that exist in software: plugged in by one call, they are then found, opened, flashed and streamed to as boards
// on USB are, through the real libusb.
//
//   auto kit = emulation::plugVirtualDevKit({.chip = emulation::ChipKind::loopback});
//   usb::getDevicesWithVidPid(usb::VendorId::Cypress, usb::ProductId::DevKit);   // finds it
//   kit->injectFault({.kind = emulation::FaultKind::stall, .endpoint = 0x81});
//   kit->unplug();                                                               // as pulling its cable
//
// Which modules stand behind a board's packets: the chip as module 2 and 5 (as a loop: as every module that isn't
// another); on an Opal Kelly board an ADC as module 1 and a DAC as module 3, wired to one another.

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "emulation/attach/Attach.h"
#include "emulation/boards/Converters.h"
#include "emulation/boards/DevKit.h"
#include "emulation/boards/Fx3BootDevice.h"
#include "emulation/boards/MemoryChip.h"
#include "emulation/boards/OpalKellyBoard.h"
#include "emulation/boards/WireFaults.h"
#include "trovi/Reflect.h"

namespace emulation {

/// What stands behind the packets of a board.
enum class ChipKind : std::uint8_t {
    memory,   ///< stores what is written to registers and memories, and answers reads
    loopback, ///< sends back what comes
    none,     ///< nothing; a test puts modules in by itself
};

struct DevKitOptions {
    std::string serialNumber{};
    ChipKind chip = ChipKind::memory;
    bool firmware = true;
    bool configured = true;

    friend bool operator==(const DevKitOptions&, const DevKitOptions&) = default;
};

struct OpalKellyOptions {
    std::string serialNumber{};
    ChipKind chip = ChipKind::memory;
    bool configured = false;

    friend bool operator==(const OpalKellyOptions&, const OpalKellyOptions&) = default;
};

/// What all have in common. A board stays plugged in until unplug(), whether or not anyone keeps it.
///
/// Threads: thread-safe. A thread of its own takes the board out, or lets it come back, when that begins inside a
/// transfer, which may not wait for it; the constructor starts it, end() joins it at destruction.
/// Locks: `mutex` guards what is plugged in, and is outer to those of bus, port and devices. `taskMutex` guards the
/// worker's orders; nothing is taken under it.
class VirtualBoard : public std::enable_shared_from_this<VirtualBoard> {
public:
    VirtualBoard(const VirtualBoard&) = delete;
    VirtualBoard& operator=(const VirtualBoard&) = delete;
    virtual ~VirtualBoard();

    /// Pulls the cable: transfers under way end, open doors fail from now on. Does nothing a second time.
    void unplug();
    /// Puts it in again, under a new address and in its power-up state; flash, faults and counters are kept. One that
    /// is plugged in is pulled out first.
    void replug();
    bool isPlugged() const;

    int busNumber() const;
    int deviceAddress() const; ///< the last one, when it isn't plugged in
    std::string serialNumber() const { return serial; }

    virtual BoardCounters counters() const = 0;
    virtual std::vector<std::string> problems() const = 0;

    /// @throws std::invalid_argument for a fault that never happens, or an endpoint that the board doesn't have
    void injectFault(const WireFault& fault);
    void clearFaults();
    std::uint64_t faultCount() const; ///< transfers that went wrong so

    /// The kernel's side, by errno numbers; 0 and "": all is well. Holds until the next unplug.
    /// @throws std::invalid_argument for a number that no errno has
    void setKernelFaults(std::int64_t open, std::int64_t claim, std::int64_t submit, const std::string& kernelDriver);

    // What its memory chip holds. @throws std::logic_error when the board has another chip
    std::uint32_t registerValue(std::uint8_t layer, std::uint8_t index) const
    {
        return memory().registerValue(layer, index);
    }
    std::uint32_t memoryValue(std::uint8_t layer, std::uint16_t address) const
    {
        return memory().memoryValue(layer, address);
    }
    std::uint32_t neuronValue(std::uint8_t layer, std::uint32_t address) const
    {
        return memory().layerValue(MemoryChip::Memory::neuron, layer, address);
    }
    std::uint32_t weightValue(std::uint8_t layer, std::uint32_t address) const
    {
        return memory().layerValue(MemoryChip::Memory::weight, layer, address);
    }
    std::uint32_t biasValue(std::uint8_t layer, std::uint32_t address) const
    {
        return memory().layerValue(MemoryChip::Memory::bias, layer, address);
    }
    std::uint16_t moduleRegister(std::uint16_t address) const { return memory().moduleRegister(address); }
    std::vector<std::uint16_t> route() const { return memory().route(); }
    std::uint64_t commandCount(std::uint16_t code) const { return memory().commandCount(code); }
    std::uint64_t spikeCount() const { return memory().spikeCount(); }

protected:
    VirtualBoard(std::string serialNumber, ChipKind chip);

    enum class Task : std::uint8_t { none, unplug, start };

    /// The wire of what is now behind the cable. With the mutex held.
    virtual const std::shared_ptr<FaultyWire>& wire() const = 0;
    /// Back to power-up. With the mutex held, nothing plugged in.
    virtual void powerUp() = 0;
    /// A firmware has been started, and doesn't run yet. With the mutex held.
    virtual bool isStarted() const { return false; }
    /// Lets it run. On the worker's thread, with the mutex held.
    virtual void started() {}

    void order(Task newTask);
    /// For the destructor of each kind, before what the worker uses goes: pulls the cable and joins the worker. Does
    /// nothing a second time.
    void end();
    void putChip(Board& board) const;
    const MemoryChip& memory() const;

    const std::string serial;
    const ChipKind chipKind;
    const std::shared_ptr<Module> chip;
    mutable std::mutex mutex;
    mutable std::condition_variable changed; // what is plugged in, or runs
    PluggedDevice plugged;
    bool in = false;

private:
    void pullOut();
    void work();

    std::mutex taskMutex;
    std::condition_variable ordered;
    Task task = Task::none;
    bool stopping = false;
    std::thread worker;
};

/// A dev kit, with its FX3 in the boot state or running its firmware.
class VirtualDevKit final : public VirtualBoard {
public:
    explicit VirtualDevKit(const DevKitOptions& options);
    ~VirtualDevKit() override;

    bool isRunning() const; ///< its firmware, under the ids of a dev kit
    /// Waits until the firmware runs and the kit has come back under its ids, at most `timeoutMs`. @return isRunning()
    bool waitUntilRunning(std::int64_t timeoutMs) const;

    BoardCounters counters() const override;
    std::vector<std::string> problems() const override;

    std::vector<std::uint8_t> ramBytes(std::uint32_t address, std::uint32_t size) const;
    std::vector<std::uint8_t> flashBytes(std::uint32_t address, std::uint32_t size) const;
    void setFlashBytes(std::uint32_t address, const std::vector<std::uint8_t>& bytes);
    std::uint64_t erasedSectors() const { return kit->flashCounters().erasedSectors; }
    std::uint64_t programmedBytes() const { return kit->flashCounters().programmedBytes; }
    std::uint64_t spoiledBytes() const { return kit->flashCounters().spoiledBytes; }
    bool isConfigured() const { return kit->isConfigured(); }
    std::vector<std::uint8_t> bitstream() const { return kit->bitstream(); }
    std::uint64_t fpgaResets() const { return kit->fpgaResets(); }
    void setCreditLimit(std::int64_t words);

    const std::shared_ptr<DevKit> kit; ///< for tests in C++

private:
    const std::shared_ptr<FaultyWire>& wire() const override { return running ? kitWire : bootWire; }
    void powerUp() override;
    bool isStarted() const override { return !running && boot->isStarted(); }
    void started() override;

    const DevKitOptions options;
    bool running = false;
    const std::shared_ptr<Fx3BootDevice> boot;
    const std::shared_ptr<FaultyWire> bootWire;
    const std::shared_ptr<FaultyWire> kitWire;
};

/// An Opal Kelly board, with an ADC and a DAC beside its chip.
class VirtualOpalKelly final : public VirtualBoard {
public:
    explicit VirtualOpalKelly(const OpalKellyOptions& options);
    ~VirtualOpalKelly() override;

    BoardCounters counters() const override { return board->counters(); }
    std::vector<std::string> problems() const override { return board->problems(); }

    bool isConfigured() const { return board->isConfigured(); }
    std::vector<std::uint8_t> bitstream() const { return board->bitstream(); }
    std::uint32_t wireIn(std::int32_t address) const { return board->wireIn(address); }
    void setWireOut(std::int32_t address, std::uint32_t value) { board->setWireOut(address, value); }
    std::uint64_t wireUpdates() const { return board->wireUpdates(); }
    std::vector<std::uint16_t> analogCodes() const;
    bool isAdcRunning() const { return adc->isRunning(); }
    std::uint16_t adcDivider() const { return adc->divider(); }
    std::uint64_t adcSampleCount() const { return adc->sampleCount(); }
    std::uint64_t adcLostCount() const { return adc->lostCount(); }
    void setCreditLimit(std::int64_t words);

    const std::shared_ptr<OpalKellyBoard> board; ///< for tests in C++

private:
    const std::shared_ptr<FaultyWire>& wire() const override { return boardWire; }
    void powerUp() override;

    const OpalKellyOptions options;
    const std::shared_ptr<AnalogWires> wires = std::make_shared<AnalogWires>();
    const std::shared_ptr<AdcModule> adc = std::make_shared<AdcModule>(wires);
    const std::shared_ptr<FaultyWire> boardWire;
};

/// Plugs a board in; the first one puts emulation under the process's libusb, see emulation/attach.
/// @throws std::runtime_error, with a remedy, where that can't be done; std::invalid_argument for a serial number that
/// no
///         descriptor can hold
std::shared_ptr<VirtualDevKit> plugVirtualDevKit(const DevKitOptions& options = {});
std::shared_ptr<VirtualOpalKelly> plugVirtualOpalKelly(const OpalKellyOptions& options = {});

/// All that are plugged in, in the order of plugging.
std::vector<std::shared_ptr<VirtualBoard>> virtualBoards();
void unplugAllVirtualBoards();

} // namespace emulation

template <>
constexpr auto trovi::registerMembers<emulation::DevKitOptions>()
{
    using emulation::DevKitOptions;
    return members(member("serialNumber", &DevKitOptions::serialNumber,
                          "up to 126 characters; empty: one that no other board has"),
                   member("chip", &DevKitOptions::chip, "what stands behind the packets"),
                   member("firmware", &DevKitOptions::firmware,
                          "True: the kit comes up with its firmware running.\n"
                          "False: its FX3 waits in the boot state for an image, then comes back as a dev kit"),
                   member("configured", &DevKitOptions::configured,
                          "True: the FPGA is configured when power comes; False: only by the host"));
}

template <>
constexpr const char* trovi::registerDoc<emulation::DevKitOptions>()
{
    return "How an emulated dev kit comes up.";
}

template <>
constexpr auto trovi::registerMembers<emulation::OpalKellyOptions>()
{
    using emulation::OpalKellyOptions;
    return members(member("serialNumber", &OpalKellyOptions::serialNumber,
                          "up to 126 characters; empty: one that no other board has"),
                   member("chip", &OpalKellyOptions::chip, "what stands behind the packets of modules 2 and 5"),
                   member("configured", &OpalKellyOptions::configured,
                          "False: the host has to configure the FPGA and set wire-in 0 to 1, as with a real board.\n"
                          "True: the board comes up with both done"));
}

template <>
constexpr const char* trovi::registerDoc<emulation::OpalKellyOptions>()
{
    return "How an emulated Opal Kelly board comes up.";
}

template <>
constexpr auto trovi::registerMemberFunctions<emulation::VirtualBoard>()
{
    using emulation::VirtualBoard;
    return functions(
        blockingFunction("unplug", &VirtualBoard::unplug, "Pulls the cable: what the board was opened with fails."),
        blockingFunction(
            "replug", &VirtualBoard::replug,
            "Pulls the cable and puts it in again: the board comes up anew, under a new address. Its flash, "
            "faults and counters stay."),
        function("isPlugged", &VirtualBoard::isPlugged, "True until it is unplugged."),
        function("busNumber", &VirtualBoard::busNumber, "The bus of all emulated devices, 250."),
        function("deviceAddress", &VirtualBoard::deviceAddress,
                 "Address on the bus, 1 to 127; the last one if unplugged."),
        function("serialNumber", &VirtualBoard::serialNumber, "Serial number, as the host reads it."),
        function("counters", &VirtualBoard::counters, "What the board has counted since it was made."),
        function(
            "problems", &VirtualBoard::problems,
            "What the host did wrong, in its order, the first 100 of it; each a sentence. Those from the boot state "
            "of a dev kit are apart from the others, and come first."),
        function(
            "injectFault", &VirtualBoard::injectFault,
            "Makes transfers go wrong on the wire. Faults of one endpoint come one after another. ValueError for a "
            "fault that never happens or an endpoint that the board doesn't have.",
            "fault"),
        function("clearFaults", &VirtualBoard::clearFaults, "Takes back the faults that haven't come yet."),
        function("faultCount", &VirtualBoard::faultCount, "Transfers that went wrong by injected faults."),
        function("setKernelFaults", &VirtualBoard::setKernelFaults,
                 "What the kernel refuses until the next unplug, by errno: opening the board (13: no permission), "
                 "claiming its interface (16: somebody has it), every transfer (12: no memory); 0 is well. A kernel "
                 "driver's name: it has the board until it is detached; empty is none.",
                 "open, claim, submit, kernelDriver"),
        function("registerValue", &VirtualBoard::registerValue,
                 "A register of the memory chip, 0 if never written. RuntimeError if the board has another chip; so "
                 "for all that look into the chip.",
                 "layer, index"),
        function("memoryValue", &VirtualBoard::memoryValue, "A word of a layer's memory.", "layer, address"),
        function("neuronValue", &VirtualBoard::neuronValue, "A neuron's state, 16 bits, and its kill bit above.",
                 "layer, address"),
        function("weightValue", &VirtualBoard::weightValue, "A weight, 8 bits, and its kill bit above.",
                 "layer, address"),
        function("biasValue", &VirtualBoard::biasValue, "A bias, 16 bits, and its kill bit above.", "layer, address"),
        function("moduleRegister", &VirtualBoard::moduleRegister, "What a configuration packet wrote there.",
                 "address"),
        function("route", &VirtualBoard::route, "The words of the last routing packet."),
        function("commandCount", &VirtualBoard::commandCount, "How often a command's 16-bit code has come.", "code"),
        function("spikeCount", &VirtualBoard::spikeCount, "Spikes and other events that the chip has got."));
}

template <>
constexpr const char* trovi::registerDoc<emulation::VirtualBoard>()
{
    return "A board that exists in software, plugged in where a real one would be.";
}

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
        function("isConfigured", &VirtualDevKit::isConfigured, "True when the FPGA holds a configuration."),
        function("bitstream", &VirtualDevKit::bitstream,
                 "What the FPGA was last configured with; empty if that was so when power came."),
        function("fpgaResets", &VirtualDevKit::fpgaResets, "How often the host has reset the FPGA."),
        function("setCreditLimit", &VirtualDevKit::setCreditLimit,
                 "Lets the board announce no more than this many words of room; 0 starves the host; -1 ends it.",
                 "words"));
}

template <>
constexpr const char* trovi::registerDoc<emulation::VirtualDevKit>()
{
    return "An emulated dev kit: an FX3 with RAM and flash, and an FPGA with a chip behind it.";
}

template <>
struct trovi::RegisterBase<emulation::VirtualOpalKelly> {
    using type = emulation::VirtualBoard;
};

template <>
constexpr auto trovi::registerMemberFunctions<emulation::VirtualOpalKelly>()
{
    using emulation::VirtualOpalKelly;
    return functions(
        function("isConfigured", &VirtualOpalKelly::isConfigured, "True when the FPGA holds a configuration."),
        function("bitstream", &VirtualOpalKelly::bitstream,
                 "What the FPGA was last configured with, without padding; empty if that was so when power came."),
        function("wireIn", &VirtualOpalKelly::wireIn,
                 "What the host last set, addresses 0 to 31. IndexError for others.", "address"),
        function("setWireOut", &VirtualOpalKelly::setWireOut,
                 "What the host reads at its next update, addresses 32 to 63. IndexError for others.",
                 "address, value"),
        function("wireUpdates", &VirtualOpalKelly::wireUpdates, "How often the host has updated the wire-ins."),
        function("analogCodes", &VirtualOpalKelly::analogCodes,
                 "What the DAC puts on the eight inputs of the ADC, as codes: 0 to 65535."),
        function("isAdcRunning", &VirtualOpalKelly::isAdcRunning, "True while the ADC samples by itself."),
        function("adcDivider", &VirtualOpalKelly::adcDivider, "What divides the ADC's 100 MHz to its rate."),
        function("adcSampleCount", &VirtualOpalKelly::adcSampleCount, "Samples that the ADC has sent."),
        function("adcLostCount", &VirtualOpalKelly::adcLostCount, "Samples lost since the host read too little."),
        function("setCreditLimit", &VirtualOpalKelly::setCreditLimit,
                 "Lets the board announce no more than this many words of room; 0 starves the host; -1 ends it.",
                 "words"));
}

template <>
constexpr const char* trovi::registerDoc<emulation::VirtualOpalKelly>()
{
    return "An emulated Opal Kelly board, with a chip, an ADC and a DAC behind its pipes.";
}
