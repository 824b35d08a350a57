// Drivers over libcaer's device classes. The only file that includes libcaer.

#include "davis/driver/Libcaer.h"

#include <libcaercpp/devices/davis.hpp>
#include <libcaercpp/devices/dvxplorer.hpp>

#include "davis/event/PolarityWord.h"

namespace davis::driver {

namespace {

/// libcaer's events are 8-byte words in memory, after a header; its event classes cost a call for each field.
void appendPacket(const libcaer::events::EventPacket& packet, std::vector<event::DvsEvent>& events)
{
    const auto* memory = reinterpret_cast<const std::byte*>(packet.getHeaderPointer());
    const auto count = static_cast<std::size_t>(packet.getEventNumber());
    event::appendEvents({memory + CAER_EVENT_PACKET_HEADER_SIZE, count * event::PolarityWord::bytes}, events);
}

/// libcaer's own texts for failures begin with the device's name.
template <class Device>
class LibcaerDriver final : public Driver {
public:
    LibcaerDriver() : device(deviceId) {}

    DriverInfo info() const override
    {
        const auto from = device.infoGet();
        DriverInfo info;
        info.name = from.deviceString;
        info.id = from.deviceID;
        info.isMaster = from.deviceIsMaster;
        info.width = from.dvsSizeX;
        info.height = from.dvsSizeY;
        info.logicVersion = from.logicVersion;
        if constexpr (requires { from.firmwareVersion; }) // the DAVIS of some versions lacks it
            info.firmwareVersion = from.firmwareVersion;
        return info;
    }

    void sendDefaultConfig() override { device.sendDefaultConfig(); }
    void configure(Setting setting, std::uint32_t value) override
    {
        device.configSet(setting.module, setting.parameter, value);
    }
    std::uint32_t configuration(Setting setting) const override
    {
        return device.configGet(setting.module, setting.parameter);
    }

    void setBias(std::uint8_t address, const CoarseFineBias& bias) override
    {
        caer_bias_coarsefine value{};
        value.coarseValue = bias.coarse;
        value.fineValue = bias.fine;
        value.enabled = bias.enabled;
        value.sexN = bias.sexN;
        value.typeNormal = bias.typeNormal;
        value.currentLevelNormal = bias.currentLevelNormal;
        configure({biasModule, address}, caerBiasCoarseFineGenerate(value));
    }
    CoarseFineBias bias(std::uint8_t address) const override
    {
        const auto word = static_cast<std::uint16_t>(configuration({biasModule, address}));
        const caer_bias_coarsefine value = caerBiasCoarseFineParse(word);
        return {value.coarseValue, value.fineValue,  value.enabled,
                value.sexN,        value.typeNormal, value.currentLevelNormal};
    }

    void start(void (*shutdown)(void* self), void* self) override
    {
        device.dataStart(nullptr, nullptr, nullptr, shutdown, self);
    }
    void stop() override { device.dataStop(); }

    std::vector<event::DvsEvent> get() override
    {
        std::vector<event::DvsEvent> events;
        if (const auto container = device.dataGet())
            for (const auto& packet : *container)
                if (packet && packet->getEventType() == POLARITY_EVENT)
                    appendPacket(*packet, events);
        return events;
    }

private:
    Device device;
};

} // namespace

std::unique_ptr<Driver> openLibcaer(CameraKind kind)
{
    if (kind == CameraKind::davis)
        return std::make_unique<LibcaerDriver<libcaer::devices::davis>>();
    return std::make_unique<LibcaerDriver<libcaer::devices::dvXplorer>>();
}

} // namespace davis::driver
