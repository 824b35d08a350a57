#pragma once
// What the boards with an FPGA have in common: modules behind a stream of blocks, counters, and the tick of idle
// answers.

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "emulation/boards/BoardLogic.h"
#include "emulation/usb/Device.h"
#include "util/Mutex.h"

namespace emulation {

/// A read of the block stream is answered at once while there are packets for the host or returned credit. Else it gets
/// credit alone, a millisecond after the last answer. Never answering would stop a host that writes only after a read
/// has ended; answering at once would spin a core on both sides.
///
/// Threads: thread-safe. Modules are called with the board's mutex held.
class Board : public Device {
public:
    using Time = Module::Time;
    using Clock = std::function<Time()>;
    static constexpr std::chrono::milliseconds tick{1};

    /// As at power-up: no packets under way, modules reset, and configured only if it was so at first.
    /// Problems and counters stay.
    void powerUp();

    /// Puts a module behind an id, 0 to 63; null takes it away.
    void setModule(int id, std::shared_ptr<Module> module);

    /// Announces at most this many words of credit from now on; 0 starves the host; -1 ends the limit.
    /// @throws std::invalid_argument for other numbers
    void setCreditLimit(std::int64_t words);

    /// True when the FPGA holds a configuration.
    bool isConfigured() const;
    /// What the FPGA was last configured with; empty when it was so from the beginning.
    std::vector<std::uint8_t> bitstream() const;

    BoardCounters counters() const;
    /// What the host did wrong, the first hundred texts.
    std::vector<std::string> problems() const;

    std::string text(int index) const override;
    std::optional<Time> pollAfter() const override;
    void cancelled(std::uint8_t endpoint) override;

protected:
    Board(std::string productText, std::string serialNumber, bool configuredAtFirst, Clock boardClock);

    /// The rest of powerUp().
    virtual void forget() VORNA_REQUIRES(mutex) = 0;

    int refuse(std::string problem, int code) VORNA_REQUIRES(mutex);
    /// The answer to a read of whole blocks; `running` false: blocks without credit or packets.
    int answerBlocks(std::span<std::uint8_t> data, bool running) VORNA_REQUIRES(mutex);
    void takeBlocks(std::span<const std::uint8_t> data, bool running) VORNA_REQUIRES(mutex);

    /// For the end of a transfer: lets a waiting read see what is new.
    void wakeIfNews() VORNA_EXCLUDES(mutex);

    mutable util::Mutex mutex; // inner to the port's, outer to those of modules; not held while the host is woken
    BoardCounters counted VORNA_GUARDED_BY(mutex);
    Problems noted VORNA_GUARDED_BY(mutex);
    BoardLogic logic VORNA_GUARDED_BY(mutex){counted, noted};
    const bool configuredAtPowerUp;
    bool configured VORNA_GUARDED_BY(mutex);
    std::vector<std::uint8_t> bitstreamBytes VORNA_GUARDED_BY(mutex);

private:
    const std::string product;
    const std::string serial;
    const Clock clock;
    Time lastAnswer VORNA_GUARDED_BY(mutex){};
    bool readWaits VORNA_GUARDED_BY(mutex) = false;
};

} // namespace emulation
