#pragma once
// What all emulated boards have in common: a cable, faults and counters.

#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "emulation/boards/Board.h"
#include "emulation/boards/ChipKind.h"
#include "emulation/boards/FaultyWire.h"
#include "emulation/boards/MemoryChip.h"
#include "emulation/usb/Bus.h"
#include "trovi/Reflect.h"
#include "util/Mutex.h"

namespace emulation {

/// A board stays plugged in until unplug(), whether or not anyone keeps it.
///
/// Threads: thread-safe. A transfer can't wait for its own board to be pulled out or to come back, so a thread of the
/// board does both; the constructor starts it, end() joins it at destruction.
class VirtualBoard : public std::enable_shared_from_this<VirtualBoard> {
public:
    VirtualBoard(const VirtualBoard&) = delete;
    VirtualBoard& operator=(const VirtualBoard&) = delete;
    virtual ~VirtualBoard();

    /// Pulls the cable: transfers under way end, and what has it open fails from now on. Does nothing a second time.
    void unplug();
    /// Puts it in again, under a new address and in its power-up state; flash, faults and counters are kept. One that
    /// is plugged in is pulled out first.
    void replug();
    bool isPlugged() const;

    int busNumber() const { return Bus::number; }
    int deviceAddress() const; ///< the last one, when it isn't plugged in
    std::string serialNumber() const { return serial; }

    virtual BoardCounters counters() const { return board->counters(); }
    virtual std::vector<std::string> problems() const { return board->problems(); }

    /// @throws std::invalid_argument for a fault that never happens, or an endpoint that the board doesn't have
    void injectFault(const WireFault& fault);
    void clearFaults();
    std::uint64_t faultCount() const; ///< transfers that went wrong so

    /// The kernel's side, by errno numbers; 0 and "": no fault. Holds until the next unplug.
    /// @throws std::invalid_argument for a number that no errno has
    void setKernelFaults(std::int64_t open, std::int64_t claim, std::int64_t submit, const std::string& kernelDriver);

    bool isConfigured() const { return board->isConfigured(); }
    std::vector<std::uint8_t> bitstream() const { return board->bitstream(); }
    void setCreditLimit(std::int64_t words) { board->setCreditLimit(words); } ///< see Board

    /// @throws std::logic_error when the board has no memory chip
    std::shared_ptr<MemoryChip> chip() const;

protected:
    VirtualBoard(std::shared_ptr<Board> boardWithFirmware, ChipKind chip);

    /// `given`, or one that no other board has.
    static std::string serialOr(const std::string& given);

    enum class Task : std::uint8_t { none, unplug, start };

    /// The wire of what is now behind the cable.
    virtual const std::shared_ptr<FaultyWire>& wire() const VORNA_REQUIRES(mutex) = 0;
    /// Back to power-up; nothing is plugged in.
    virtual void powerUp() VORNA_REQUIRES(mutex) { board->powerUp(); }
    /// A firmware has been started, and doesn't run yet.
    virtual bool isStarted() const VORNA_REQUIRES(mutex) { return false; }
    /// Lets it run; on the board's thread.
    virtual void started() VORNA_REQUIRES(mutex) {}

    void order(Task newTask);
    /// For the destructor of each kind, before what the thread uses goes: pulls the cable and joins the thread. Does
    /// nothing a second time.
    void end();

    const std::string serial;
    // Inner to the registry's mutex, outer to those of bus, port, wire and board.
    mutable util::Mutex mutex;
    mutable util::ConditionVariable changed; // what is plugged in, or runs
    PluggedDevice plugged VORNA_GUARDED_BY(mutex);
    bool in VORNA_GUARDED_BY(mutex) = false;

private:
    void plugIn() VORNA_REQUIRES(mutex);
    void pullOut() VORNA_REQUIRES(mutex);
    void work();
    void carryOut(Task now);

    const std::shared_ptr<Board> board;
    const std::shared_ptr<MemoryChip> memory; // null: the chip keeps nothing

    util::Mutex taskMutex; // innermost: a transfer gives orders while its port is locked
    util::ConditionVariable ordered;
    Task task VORNA_GUARDED_BY(taskMutex) = Task::none;
    bool stopping VORNA_GUARDED_BY(taskMutex) = false;
    std::thread worker; // last: it uses all of the above
};

} // namespace emulation

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
                 "claiming its interface (16: somebody has it), every transfer (12: no memory); 0 is none. A kernel "
                 "driver's name: it has the board until it is detached; empty is none.",
                 "open, claim, submit, kernelDriver"),
        function("isConfigured", &VirtualBoard::isConfigured, "True when the FPGA holds a configuration."),
        function("bitstream", &VirtualBoard::bitstream,
                 "What the FPGA was last configured with, without padding; empty if it was configured at power-up."),
        function("setCreditLimit", &VirtualBoard::setCreditLimit,
                 "Lets the board announce at most this many words of room: 0 starves the host, -1 ends the limit. "
                 "ValueError beyond 16384.",
                 "words"),
        function("chip", &VirtualBoard::chip,
                 "The chip behind the packets, to see what the host wrote to it. RuntimeError for a chip that keeps "
                 "nothing: see ChipKind."));
}

template <>
constexpr const char* trovi::registerDoc<emulation::VirtualBoard>()
{
    return "A board that exists in software, plugged in where a real one would be.";
}
