#include "davis/caer/Devices.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "davis/event/PolarityWord.h"
#include "davis/recording/detail/Aedat31.h"

namespace {

using davis::event::BitField;

struct BiasBits {
    static constexpr BitField enabled{0, 1};
    static constexpr BitField sexN{1, 1};
    static constexpr BitField typeNormal{2, 1};
    static constexpr BitField currentLevelNormal{3, 1};
    static constexpr BitField fine{4, 8};
    static constexpr BitField coarse{12, 3}; // its most significant bit lowest
};

constexpr std::uint32_t reversed3(std::uint32_t bits) { return (bits & 1) << 2 | (bits & 2) | (bits & 4) >> 2; }

} // namespace

std::uint16_t caerBiasCoarseFineGenerate(const caer_bias_coarsefine bias) noexcept
{
    return static_cast<std::uint16_t>(
        BiasBits::enabled.put(bias.enabled) | BiasBits::sexN.put(bias.sexN) |
        BiasBits::typeNormal.put(bias.typeNormal) | BiasBits::currentLevelNormal.put(bias.currentLevelNormal) |
        BiasBits::fine.put(bias.fineValue) | BiasBits::coarse.put(reversed3(bias.coarseValue)));
}

caer_bias_coarsefine caerBiasCoarseFineParse(const std::uint16_t word) noexcept
{
    caer_bias_coarsefine bias{};
    bias.coarseValue = static_cast<std::uint8_t>(reversed3(BiasBits::coarse.get(word)));
    bias.fineValue = static_cast<std::uint8_t>(BiasBits::fine.get(word));
    bias.enabled = BiasBits::enabled.get(word) != 0;
    bias.sexN = BiasBits::sexN.get(word) != 0;
    bias.typeNormal = BiasBits::typeNormal.get(word) != 0;
    bias.currentLevelNormal = BiasBits::currentLevelNormal.get(word) != 0;
    return bias;
}

namespace libcaer::devices {

namespace {

using ::davis::caer::CameraInfo;
using ::davis::caer::CameraKind;
using ::davis::caer::VirtualBus;
using ::davis::event::DvsEvent;
using libcaer::events::EventPacketContainer;

// How long a reader that is told to stop may go on waiting for a camera that shows nothing.
constexpr int blockingWaitMs = 10;

std::string describe(const CameraInfo& info, std::uint16_t id)
{
    return info.model + " ID-" + std::to_string(id) + " SN-" + info.serialNumber + " [0:0]";
}

void refuseRestrictions(std::uint8_t bus, std::uint8_t address, const std::string& serial)
{
    if (bus != 0 || address != 0 || !serial.empty())
        throw std::runtime_error("Failed to open device: virtual cameras have no bus, address or serial number to "
                                 "restrict the choice by.");
}

/// Polarity packets, cut where the 31-bit timestamp turns over.
void addPolarity(EventPacketContainer& container, std::span<const DvsEvent> events)
{
    using ::davis::recording::detail::timestampBits;
    const auto turn = [](const DvsEvent& event) { return event.timestamp >> timestampBits; };
    while (!events.empty()) {
        // Batches are in timestamp order as a rule; the search below is right in any case.
        const auto end =
            turn(events.front()) == turn(events.back())
                ? events.end()
                : std::ranges::find_if(events, [&](const DvsEvent& e) { return turn(e) != turn(events[0]); });
        const auto packet = events.first(static_cast<std::size_t>(end - events.begin()));
        container.addEventPacket(std::make_shared<libcaer::events::PolarityEventPacket>(packet));
        events = events.subspan(packet.size());
    }
}

} // namespace

usb::usb(std::uint16_t deviceID, CameraKind kind)
    : id(static_cast<std::int16_t>(deviceID)), camera(VirtualBus::instance().openFirst(kind)),
      deviceString(describe(camera->info(), deviceID))
{}

usb::~usb()
{
    camera->stopStream(); // false when it does not deliver: then there is nothing to end
    camera->close();
}

void usb::sendDefaultConfig() const
{
    if (!camera->isPlugged())
        fail("failed to send default configuration.");
    const std::lock_guard lock(mutex);
    registers.clear();
}

void usb::configSet(std::int8_t modAddr, std::uint8_t paramAddr, std::uint32_t param) const
{
    // The host's own settings (negative modules) live in the library, not in the camera.
    if (modAddr >= 0 && !camera->isPlugged())
        fail("failed to set configuration parameter, modAddr=" + std::to_string(modAddr) +
             ", paramAddr=" + std::to_string(paramAddr) + ", param=" + std::to_string(param) + ".");
    const std::lock_guard lock(mutex);
    registers[{modAddr, paramAddr}] = param;
}

std::uint32_t usb::configGet(std::int8_t modAddr, std::uint8_t paramAddr) const
{
    if (modAddr >= 0 && !camera->isPlugged())
        fail("failed to get configuration parameter, modAddr=" + std::to_string(modAddr) +
             ", paramAddr=" + std::to_string(paramAddr) + ".");
    const std::lock_guard lock(mutex);
    const auto found = registers.find({modAddr, paramAddr});
    return found == registers.end() ? 0 : found->second;
}

void usb::dataStart(void (*)(void*), void (*)(void*), void*, void (*dataShutdownNotify)(void* ptr),
                    void* dataShutdownUserPtr) const
{
    resetDue = true;
    std::function<void()> shutdown;
    if (dataShutdownNotify != nullptr)
        shutdown = [dataShutdownNotify, dataShutdownUserPtr] { dataShutdownNotify(dataShutdownUserPtr); };
    if (!camera->startStream(std::move(shutdown)))
        fail("failed to start getting data.");
}

void usb::dataStop() const
{
    if (!camera->stopStream())
        fail("failed to stop getting data.");
}

std::unique_ptr<EventPacketContainer> usb::dataGet() const
{
    const bool blocking = configGet(CAER_HOST_CONFIG_DATAEXCHANGE, CAER_HOST_CONFIG_DATAEXCHANGE_BLOCKING) != 0;
    std::vector<DvsEvent> events;
    auto container = std::make_unique<EventPacketContainer>();
    if (resetDue) {
        // A camera begins with the special event of its timestamp reset, in a read without polarity events.
        resetDue = false;
        container->addEventPacket(
            std::make_shared<libcaer::events::EventPacket>(SPECIAL_EVENT, std::vector<DvsEvent>(1)));
        container->addEventPacket(nullptr);
        return container;
    }
    if (!camera->next(events, blocking ? blockingWaitMs : 0, backlog))
        return nullptr;
    container->addEventPacket(nullptr); // the place of special events
    addPolarity(*container, events);
    return container;
}

template <class Info>
Info usb::commonInfo() const noexcept
{
    const CameraInfo of = camera->info();
    Info info{};
    info.deviceID = id;
    of.serialNumber.copy(info.deviceSerialNumber, sizeof info.deviceSerialNumber - 1);
    info.deviceString = deviceString.data();
    info.deviceIsMaster = true; // nothing else shares its clock
    info.dvsSizeX = of.width;
    info.dvsSizeY = of.height;
    return info;
}

davis::davis(std::uint16_t deviceID) : davis(deviceID, 0, 0, "") {}

davis::davis(std::uint16_t deviceID, std::uint8_t busNumberRestrict, std::uint8_t devAddressRestrict,
             const std::string& serialNumberRestrict)
    : usb((refuseRestrictions(busNumberRestrict, devAddressRestrict, serialNumberRestrict), deviceID),
          CameraKind::davis)
{}

caer_davis_info davis::infoGet() const noexcept { return commonInfo<caer_davis_info>(); }

dvXplorer::dvXplorer(std::uint16_t deviceID) : dvXplorer(deviceID, 0, 0, "") {}

dvXplorer::dvXplorer(std::uint16_t deviceID, std::uint8_t busNumberRestrict, std::uint8_t devAddressRestrict,
                     const std::string& serialNumberRestrict)
    : usb((refuseRestrictions(busNumberRestrict, devAddressRestrict, serialNumberRestrict), deviceID),
          CameraKind::dvXplorer)
{}

caer_dvx_info dvXplorer::infoGet() const noexcept { return commonInfo<caer_dvx_info>(); }

} // namespace libcaer::devices
