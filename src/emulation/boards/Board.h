#pragma once
// What the boards with an FPGA have in common: modules behind a stream of blocks, counters, and the tick of idle
// answers.

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "emulation/boards/BoardLogic.h"
#include "emulation/usb/Device.h"

namespace emulation {

/// A read of the block stream is answered at once while there are packets for the host or credit has come back, else
/// with credit alone a millisecond after the answer before. Never answering would stop a host that writes only after
/// a read has ended; answering at once would spin a core on both sides.
///
/// Threads: thread-safe. `mutex` guards all state, the modules' calls included; it is inner to the port's, and not held
/// while the host is woken.
class Board : public Device {
public:
    using Time = Module::Time;
    using Clock = std::function<Time()>;
    static constexpr std::chrono::milliseconds tick{1};

    /// As when power comes: no packets under way, modules reset, the configuration there only if it was so at first.
    /// Problems and counters stay.
    void powerUp();

    /// Puts a module behind an id, 0 to 63; null takes it away.
    void setModule(int id, std::shared_ptr<Module> module);

    /// Announces at most so many words of credit from now on; 0 starves the host; nothing ends it.
    void setCreditLimit(std::optional<std::uint32_t> words);

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

    /// The rest of powerUp(), with the mutex held.
    virtual void forget() = 0;

    // With the mutex held.
    int refuse(std::string problem, int code);
    /// The answer to a read of whole blocks; `running` false: blocks without credit or packets.
    int answerBlocks(std::span<std::uint8_t> data, bool running);
    void takeBlocks(std::span<const std::uint8_t> data, bool running);

    /// For the end of a transfer, without the mutex: lets a waiting read see what is new.
    void wakeIfNews();

    mutable std::mutex mutex;
    BoardCounters counted;
    Problems noted;
    BoardLogic logic{counted, noted};
    const bool configuredAtPowerUp;
    bool configured;
    std::vector<std::uint8_t> bitstreamBytes;

private:
    const std::string product;
    const std::string serial;
    const Clock clock;
    Time lastAnswer{};
    bool readWaits = false;
};

} // namespace emulation
