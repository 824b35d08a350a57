#pragma once
// A stand-in for libcaer: the names that src/davis/driver/Libcaer.cpp uses, over cameras of the emulation that a test
// plugs in here instead of on the virtual bus. It behaves as libcaer does where that matters to a caller: one USB thread
// completes control transfers and calls the shutdown callback, and a blocking dataGet() without data takes a second.

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "davis/driver/PluggedCamera.h"

#define CAER_EVENT_PACKET_HEADER_SIZE 28
enum caer_default_event_types { SPECIAL_EVENT = 0, POLARITY_EVENT = 1, IMU6_EVENT = 3 };
using caerEventPacketHeaderConst = const struct caer_event_packet_header*;

struct caer_bias_coarsefine {
    std::uint8_t coarseValue, fineValue;
    bool enabled, sexN, typeNormal, currentLevelNormal;
};
std::uint16_t caerBiasCoarseFineGenerate(const caer_bias_coarsefine bias) noexcept;
caer_bias_coarsefine caerBiasCoarseFineParse(const std::uint16_t word) noexcept;

struct caer_davis_info {
    std::int16_t deviceID;
    char* deviceString;
    std::int16_t logicVersion;
    bool deviceIsMaster;
    std::int16_t dvsSizeX, dvsSizeY;
};
struct caer_dvx_info : caer_davis_info {
    std::int16_t firmwareVersion;
};

namespace libcaer::events {

class EventPacket {
public:
    /// Every other event has its valid mark cleared.
    EventPacket(std::int16_t type, const std::vector<davis::event::DvsEvent>& events);
    std::int16_t getEventType() const noexcept { return type; }
    std::int32_t getEventNumber() const noexcept { return static_cast<std::int32_t>((words.size() - 7) / 2); }
    caerEventPacketHeaderConst getHeaderPointer() const noexcept
    {
        return reinterpret_cast<caerEventPacketHeaderConst>(words.data());
    }

private:
    std::int16_t type;
    std::vector<std::uint32_t> words; // a header of 28 bytes, which the camera classes have no need of; then the events
};

using EventPacketContainer = std::vector<std::shared_ptr<EventPacket>>;

} // namespace libcaer::events

namespace libcaer::devices {

class usb {
public:
    usb(std::uint16_t id, davis::driver::CameraKind kind);
    ~usb();
    std::string toString() const noexcept { return name; }
    void sendDefaultConfig() const;
    void configSet(std::int8_t modAddr, std::uint8_t paramAddr, std::uint32_t param) const;
    std::uint32_t configGet(std::int8_t modAddr, std::uint8_t paramAddr) const;
    void dataStart(void (*increase)(void*), void (*decrease)(void*), void* user, void (*shutdown)(void*),
                   void* shutdownUser) const;
    void dataStop() const;
    std::unique_ptr<events::EventPacketContainer> dataGet() const;

protected:
    caer_dvx_info allInfo() const noexcept;

private:
    void require(bool good, const std::string& failure) const;

    std::int16_t id;
    std::shared_ptr<davis::driver::PluggedCamera> camera;
    mutable std::string name; // infoGet() gives it as char*
    mutable std::map<std::pair<std::int8_t, std::uint8_t>, std::uint32_t> parameters;
    mutable bool resetDue = false;
};

class davis : public usb {
public:
    explicit davis(std::uint16_t id) : usb(id, ::davis::driver::CameraKind::davis) {}
    caer_davis_info infoGet() const noexcept { return allInfo(); }
};
class dvXplorer : public usb {
public:
    explicit dvXplorer(std::uint16_t id) : usb(id, ::davis::driver::CameraKind::dvXplorer) {}
    caer_dvx_info infoGet() const noexcept { return allInfo(); }
};

} // namespace libcaer::devices

namespace standin {

constexpr std::int16_t firmwareVersion = 9, logicVersion = 18;

/// The cameras that the stand-in finds.
std::vector<std::shared_ptr<davis::driver::PluggedCamera>>& bus();

} // namespace standin
