#pragma once
// Devices under libcaer's names, as far as the cameras call them, over the first free virtual camera of their kind.
// Failures are std::runtime_error with libcaer's texts, which begin with toString().
//
// Threads: as libcaer's. dataGet() is for one thread; everything else is thread-safe while the device lives. The
// shutdown callback runs on a thread of the virtual camera's own, which the destructor waits for.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>

#include "davis/caer/Events.h"
#include "davis/caer/VirtualBus.h"

constexpr std::uint16_t CAER_DEVICE_DAVIS = 4;
constexpr std::uint16_t CAER_DEVICE_DVXPLORER = 8;

constexpr std::int8_t CAER_HOST_CONFIG_DATAEXCHANGE = -2;
constexpr std::uint8_t CAER_HOST_CONFIG_DATAEXCHANGE_BLOCKING = 1;
constexpr std::int8_t DAVIS_CONFIG_BIAS = 5;
constexpr std::uint8_t DAVIS240_CONFIG_BIAS_PRBP = 8;
constexpr std::uint8_t DAVIS240_CONFIG_BIAS_PRSFBP = 9;

/// A bias current of a DAVIS: `coarse` of 8 ranges (0 the largest), `fine` within one.
struct caer_bias_coarsefine {
    std::uint8_t coarseValue; // 0 to 7
    std::uint8_t fineValue;   // 0 to 255
    bool enabled;
    bool sexN;
    bool typeNormal;
    bool currentLevelNormal;
};
/// As the chip takes it: bit 0 enabled, 1 sexN, 2 typeNormal, 3 currentLevelNormal, 11..4 fine, 14..12 coarse with its
/// most significant bit lowest.
std::uint16_t caerBiasCoarseFineGenerate(const caer_bias_coarsefine coarseFineBias) noexcept;
caer_bias_coarsefine caerBiasCoarseFineParse(const std::uint16_t coarseFineBias) noexcept;

struct caer_davis_info {
    std::int16_t deviceID;
    char deviceSerialNumber[8 + 1];
    std::uint8_t deviceUSBBusNumber;
    std::uint8_t deviceUSBDeviceAddress;
    char* deviceString; // lives as long as the device
    std::int16_t firmwareVersion;
    std::int16_t logicVersion;
    std::int16_t chipID;
    bool deviceIsMaster;
    std::int16_t dvsSizeX;
    std::int16_t dvsSizeY;
};

struct caer_dvx_info {
    std::int16_t deviceID;
    char deviceSerialNumber[8 + 1];
    std::uint8_t deviceUSBBusNumber;
    std::uint8_t deviceUSBDeviceAddress;
    char* deviceString; // lives as long as the device
    std::int16_t firmwareVersion;
    std::int16_t logicVersion;
    std::int16_t chipID;
    bool deviceIsMaster;
    std::int16_t dvsSizeX;
    std::int16_t dvsSizeY;
};

namespace libcaer::devices {

class usb {
public:
    usb(const usb&) = delete;
    usb& operator=(const usb&) = delete;
    virtual ~usb();

    std::string toString() const noexcept { return deviceString; }

    /// Registers go back to what they are at power-on.
    void sendDefaultConfig() const;
    void configSet(std::int8_t modAddr, std::uint8_t paramAddr, std::uint32_t param) const;
    /// What was last set; 0 for what never was.
    std::uint32_t configGet(std::int8_t modAddr, std::uint8_t paramAddr) const;

    void dataStart(void (*dataNotifyIncrease)(void* ptr), void (*dataNotifyDecrease)(void* ptr),
                   void* dataNotifyUserPtr, void (*dataShutdownNotify)(void* ptr), void* dataShutdownUserPtr) const;
    /// Good also after an unplug: a reader that was told to leave calls it on its way out.
    void dataStop() const;
    /// The next read, or null. Under blocking data exchange it waits for one, but after 10 ms gives null all the same,
    /// so that a reader sees that it is to stop even when the camera has nothing more to tell.
    std::unique_ptr<libcaer::events::EventPacketContainer> dataGet() const;

    /// Ours alone; see caer::setBacklogQuery(). Before dataStart().
    void setBacklogQuery(std::function<std::size_t()> waiting) { backlog = std::move(waiting); }

protected:
    usb(std::uint16_t deviceID, ::davis::caer::CameraKind kind);
    template <class Info>
    Info commonInfo() const noexcept;

private:
    [[noreturn]] void fail(const std::string& what) const { throw std::runtime_error(toString() + ": " + what); }

    const std::int16_t id;
    const std::shared_ptr<::davis::caer::PluggedCamera> camera;
    mutable std::string deviceString; // mutable since infoGet() hands out a char* to it, as libcaer does
    std::function<std::size_t()> backlog;
    mutable bool resetDue = false; // of dataGet()'s thread: the first read tells of the timestamp reset
    mutable std::mutex mutex;      // inner to nothing, and nothing is taken under it
    mutable std::map<std::pair<std::int8_t, std::uint8_t>, std::uint32_t> registers; // under `mutex`
};

/// `busNumberRestrict`, `devAddressRestrict` and `serialNumberRestrict` are for real buses: virtual cameras are taken
/// in plug order, so anything but "no restriction" finds none.
class davis : public usb {
public:
    explicit davis(std::uint16_t deviceID);
    davis(std::uint16_t deviceID, std::uint8_t busNumberRestrict, std::uint8_t devAddressRestrict,
          const std::string& serialNumberRestrict);
    caer_davis_info infoGet() const noexcept;
};

class dvXplorer : public usb {
public:
    explicit dvXplorer(std::uint16_t deviceID);
    dvXplorer(std::uint16_t deviceID, std::uint8_t busNumberRestrict, std::uint8_t devAddressRestrict,
              const std::string& serialNumberRestrict);
    caer_dvx_info infoGet() const noexcept;
};

} // namespace libcaer::devices
