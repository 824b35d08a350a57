#pragma once
// A stand-in for libcaer: the names that src/davis/driver/Libcaer.cpp uses, over cameras of the emulation that a test
// plugs in here instead of on the virtual bus. It behaves as libcaer does where that matters to a caller: one USB
// thread completes control transfers and calls the shutdown callback; a blocking dataGet() without data takes a second.

#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "davis/driver/PluggedCamera.h"

namespace standin {

constexpr std::int16_t firmwareVersion = 9, logicVersion = 18;

/// The cameras that the stand-in finds.
inline std::vector<std::shared_ptr<davis::driver::PluggedCamera>> bus;

} // namespace standin

#define CAER_EVENT_PACKET_HEADER_SIZE 28
enum caer_default_event_types { SPECIAL_EVENT = 0, POLARITY_EVENT = 1, IMU6_EVENT = 3 };
using caerEventPacketHeaderConst = const struct caer_event_packet_header*;

struct caer_bias_coarsefine {
    std::uint8_t coarseValue, fineValue;
    bool enabled, sexN, typeNormal, currentLevelNormal;
};

inline std::uint16_t caerBiasCoarseFineGenerate(const caer_bias_coarsefine bias) noexcept
{
    const int flags = bias.enabled | bias.sexN << 1 | bias.typeNormal << 2 | bias.currentLevelNormal << 3;
    return static_cast<std::uint16_t>(bias.coarseValue << 12 | bias.fineValue << 4 | flags);
}

inline caer_bias_coarsefine caerBiasCoarseFineParse(const std::uint16_t word) noexcept
{
    const auto bit = [&](int i) { return (word >> i & 1) != 0; };
    return {static_cast<std::uint8_t>(word >> 12 & 7),
            static_cast<std::uint8_t>(word >> 4),
            bit(0),
            bit(1),
            bit(2),
            bit(3)};
}

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
    EventPacket(std::int16_t packetType, const std::vector<davis::event::DvsEvent>& events) : type(packetType), words(7)
    {
        for (const davis::event::DvsEvent& event : events) {
            const std::uint32_t valid = words.size() / 2 % 2;
            words.push_back(std::uint32_t{event.x} << 17 | event.y << 2 | event.polarity << 1 | valid);
            words.push_back(static_cast<std::uint32_t>(event.timestamp) & 0x7FFFFFFF);
        }
    }
    std::int16_t getEventType() const noexcept { return type; }
    std::int32_t getEventNumber() const noexcept { return static_cast<std::int32_t>((words.size() - 7) / 2); }
    caerEventPacketHeaderConst getHeaderPointer() const noexcept
    {
        return reinterpret_cast<caerEventPacketHeaderConst>(words.data());
    }

private:
    std::int16_t type;
    std::vector<std::uint32_t> words; // a header of 28 bytes, whose fields no camera class reads; then the events
};

using EventPacketContainer = std::vector<std::shared_ptr<EventPacket>>;

} // namespace libcaer::events

namespace libcaer::devices {

template <davis::driver::CameraKind kind, class Info>
class usb {
public:
    explicit usb(std::uint16_t deviceId) : id(static_cast<std::int16_t>(deviceId))
    {
        for (const auto& plugged : standin::bus)
            if (!camera && plugged->kind() == kind && plugged->open())
                camera = plugged;
        if (!camera)
            throw std::runtime_error("Failed to open device, type=" + std::to_string(static_cast<int>(kind)) + ".");
        name = camera->info().model + " ID-" + std::to_string(id) + " SN-" + camera->info().serialNumber + " [0:0]";
    }
    ~usb()
    {
        camera->stopStream();
        camera->close();
    }

    Info infoGet() const noexcept
    {
        const auto from = camera->info();
        caer_dvx_info info{{id, name.data(), standin::logicVersion, true, from.width, from.height},
                           standin::firmwareVersion};
        return info;
    }
    void sendDefaultConfig() const { require(camera->controlTransfer()); }
    void configSet(std::int8_t modAddr, std::uint8_t paramAddr, std::uint32_t param) const
    {
        require(modAddr < 0 || camera->controlTransfer());
        parameters[{modAddr, paramAddr}] = param;
    }
    std::uint32_t configGet(std::int8_t modAddr, std::uint8_t paramAddr) const
    {
        require(modAddr < 0 || camera->controlTransfer());
        return parameters[{modAddr, paramAddr}];
    }
    void dataStart(void (*)(void*), void (*)(void*), void*, void (*shutdown)(void*), void* shutdownUser) const
    {
        resetDue = true;
        require(camera->startStream([=] { shutdown(shutdownUser); }));
    }
    void dataStop() const { require(camera->stopStream()); }
    std::unique_ptr<events::EventPacketContainer> dataGet() const
    {
        using Events = std::vector<davis::event::DvsEvent>;
        const auto packet = [](std::int16_t type, const Events& of) {
            return std::make_shared<events::EventPacket>(type, of);
        };
        if (std::exchange(resetDue, false)) // a camera begins with the special event of its timestamp reset
            return std::make_unique<events::EventPacketContainer>(1, packet(SPECIAL_EVENT, Events(1)));
        const bool blocking = parameters[{-2, 1}] != 0;
        Events all, beforeTurn, afterTurn; // of the 31-bit timestamp: a packet has one overflow
        if (!camera->next(all, blocking ? 1000 : 0, {}))
            return nullptr;
        for (const auto& event : all)
            (event.timestamp >> 31 == all[0].timestamp >> 31 ? beforeTurn : afterTurn).push_back(event);
        return std::make_unique<events::EventPacketContainer>(
            events::EventPacketContainer{nullptr, packet(POLARITY_EVENT, beforeTurn), packet(IMU6_EVENT, Events(3)),
                                         packet(POLARITY_EVENT, afterTurn)});
    }

private:
    void require(bool good) const
    {
        if (!good)
            throw std::runtime_error(name + ": failed.");
    }

    std::int16_t id;
    std::shared_ptr<::davis::driver::PluggedCamera> camera;
    mutable std::string name; // infoGet() gives it as char*
    mutable std::map<std::pair<std::int8_t, std::uint8_t>, std::uint32_t> parameters;
    mutable bool resetDue = false;
};

using dvXplorer = usb<davis::driver::CameraKind::dvXplorer, caer_dvx_info>;
using davis = usb<davis::driver::CameraKind::davis, caer_davis_info>;

} // namespace libcaer::devices
