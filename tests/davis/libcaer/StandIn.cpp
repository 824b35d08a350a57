#include "StandIn.h"

#include <stdexcept>

using davis::event::DvsEvent;

std::vector<std::shared_ptr<davis::driver::PluggedCamera>>& standin::bus()
{
    static std::vector<std::shared_ptr<davis::driver::PluggedCamera>> cameras;
    return cameras;
}

std::uint16_t caerBiasCoarseFineGenerate(const caer_bias_coarsefine bias) noexcept
{
    const int flags = bias.enabled | bias.sexN << 1 | bias.typeNormal << 2 | bias.currentLevelNormal << 3;
    return static_cast<std::uint16_t>(bias.coarseValue << 12 | bias.fineValue << 4 | flags);
}

caer_bias_coarsefine caerBiasCoarseFineParse(const std::uint16_t word) noexcept
{
    const auto bit = [&](int i) { return (word >> i & 1) != 0; };
    return {static_cast<std::uint8_t>(word >> 12 & 7),
            static_cast<std::uint8_t>(word >> 4),
            bit(0),
            bit(1),
            bit(2),
            bit(3)};
}

namespace libcaer::events {

EventPacket::EventPacket(std::int16_t packetType, const std::vector<DvsEvent>& events) : type(packetType), words(7)
{
    for (const DvsEvent& event : events) {
        const std::uint32_t valid = words.size() / 2 % 2;
        words.push_back(std::uint32_t{event.x} << 17 | event.y << 2 | event.polarity << 1 | valid);
        words.push_back(static_cast<std::uint32_t>(event.timestamp) & 0x7FFFFFFF);
    }
}

} // namespace libcaer::events

namespace libcaer::devices {

using libcaer::events::EventPacket;

usb::usb(std::uint16_t deviceId, ::davis::driver::CameraKind kind) : id(static_cast<std::int16_t>(deviceId))
{
    for (const auto& plugged : standin::bus())
        if (!camera && plugged->kind() == kind && plugged->open())
            camera = plugged;
    if (!camera)
        throw std::runtime_error("Failed to open device, type=" + std::to_string(static_cast<int>(kind)) + ".");
    name = camera->info().model + " ID-" + std::to_string(id) + " SN-" + camera->info().serialNumber + " [0:0]";
}

usb::~usb()
{
    camera->stopStream();
    camera->close();
}

void usb::require(bool good, const std::string& failure) const
{
    if (!good)
        throw std::runtime_error(name + ": failed to " + failure + ".");
}

void usb::sendDefaultConfig() const { require(camera->controlTransfer(), "send default configuration"); }

void usb::configSet(std::int8_t modAddr, std::uint8_t paramAddr, std::uint32_t param) const
{
    require(modAddr < 0 || camera->controlTransfer(),
            "set configuration parameter, modAddr=" + std::to_string(modAddr) +
                ", paramAddr=" + std::to_string(paramAddr) + ", param=" + std::to_string(param));
    parameters[{modAddr, paramAddr}] = param;
}

std::uint32_t usb::configGet(std::int8_t modAddr, std::uint8_t paramAddr) const
{
    require(modAddr < 0 || camera->controlTransfer(),
            "get configuration parameter, modAddr=" + std::to_string(modAddr) +
                ", paramAddr=" + std::to_string(paramAddr));
    return parameters[{modAddr, paramAddr}];
}

void usb::dataStart(void (*)(void*), void (*)(void*), void*, void (*shutdown)(void*), void* shutdownUser) const
{
    resetDue = true;
    require(camera->startStream([=] { shutdown(shutdownUser); }), "start getting data");
}

void usb::dataStop() const { require(camera->stopStream(), "stop getting data"); }

std::unique_ptr<events::EventPacketContainer> usb::dataGet() const
{
    auto container = std::make_unique<events::EventPacketContainer>();
    if (std::exchange(resetDue, false)) { // a camera begins with the special event of its timestamp reset
        container->push_back(std::make_shared<EventPacket>(SPECIAL_EVENT, std::vector<DvsEvent>(1)));
        return container;
    }
    const bool blocking = parameters[{-2, 1}] != 0;
    std::vector<DvsEvent> events;
    if (!camera->next(events, blocking ? 1000 : 0, {}))
        return nullptr;
    std::vector<DvsEvent> beforeTurn, afterTurn; // of the 31-bit timestamp: a packet has one overflow
    for (const DvsEvent& event : events)
        (event.timestamp >> 31 == events[0].timestamp >> 31 ? beforeTurn : afterTurn).push_back(event);
    *container = {nullptr, std::make_shared<EventPacket>(POLARITY_EVENT, beforeTurn),
                  std::make_shared<EventPacket>(IMU6_EVENT, std::vector<DvsEvent>(3)),
                  std::make_shared<EventPacket>(POLARITY_EVENT, afterTurn)};
    return container;
}

caer_dvx_info usb::allInfo() const noexcept
{
    caer_dvx_info info{};
    info.deviceID = id;
    info.deviceString = name.data();
    info.deviceIsMaster = true;
    info.dvsSizeX = camera->info().width;
    info.dvsSizeY = camera->info().height;
    info.firmwareVersion = standin::firmwareVersion;
    info.logicVersion = standin::logicVersion;
    return info;
}

} // namespace libcaer::devices
