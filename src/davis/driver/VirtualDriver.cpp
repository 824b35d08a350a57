#include "davis/driver/VirtualDriver.h"

#include <stdexcept>

namespace davis::driver {

namespace {

// How long a reader that is asked to stop may go on waiting for a camera that shows nothing.
constexpr int blockingWaitMs = 10;

constexpr std::int64_t timestampMask = (std::int64_t{1} << 31) - 1; // a camera counts in 31 bits

std::string nameOf(const CameraInfo& info)
{
    return info.model + " ID-" + std::to_string(deviceId) + " SN-" + info.serialNumber + " [0:0]";
}

std::string addressText(Setting setting)
{
    return "modAddr=" + std::to_string(setting.module) + ", paramAddr=" + std::to_string(setting.parameter);
}

} // namespace

VirtualDriver::VirtualDriver(std::shared_ptr<PluggedCamera> opened)
    : camera(std::move(opened)), name(nameOf(camera->info()))
{}

VirtualDriver::~VirtualDriver()
{
    camera->stopStream(); // false when it does not deliver: then there is nothing to end
    camera->close();
}

DriverInfo VirtualDriver::info() const
{
    const CameraInfo from = camera->info();
    DriverInfo info;
    info.name = name;
    info.id = deviceId;
    info.isMaster = true; // no other camera shares its clock
    info.width = from.width;
    info.height = from.height;
    return info;
}

void VirtualDriver::require(bool good, const std::string& failure) const
{
    if (!good)
        throw std::runtime_error(name + ": failed to " + failure + ".");
}

// The host's own settings need no transfer: they are not in the camera.
void VirtualDriver::requireTransfer(Setting setting, const std::string& failure) const
{
    require(setting.module < 0 || camera->controlTransfer(), failure);
}

void VirtualDriver::sendDefaultConfig()
{
    require(camera->controlTransfer(), "send default configuration");
    settings.clear();
}

void VirtualDriver::configure(Setting setting, std::uint32_t value)
{
    requireTransfer(setting,
                    "set configuration parameter, " + addressText(setting) + ", param=" + std::to_string(value));
    settings[{setting.module, setting.parameter}] = value;
}

std::uint32_t VirtualDriver::valueOf(Setting setting) const
{
    const auto found = settings.find({setting.module, setting.parameter});
    return found == settings.end() ? 0 : found->second;
}

std::uint32_t VirtualDriver::configuration(Setting setting) const
{
    requireTransfer(setting, "get configuration parameter, " + addressText(setting));
    return valueOf(setting);
}

void VirtualDriver::setBias(std::uint8_t address, const CoarseFineBias& bias)
{
    configure({biasModule, address}, biasWord(bias));
}

CoarseFineBias VirtualDriver::bias(std::uint8_t address) const { return biasOf(configuration({biasModule, address})); }

void VirtualDriver::start(void (*shutdown)(void* self), void* self)
{
    require(camera->startStream([shutdown, self] { shutdown(self); }), "start getting data");
}

void VirtualDriver::stop() { require(camera->stopStream(), "stop getting data"); }

std::vector<event::DvsEvent> VirtualDriver::get()
{
    std::vector<event::DvsEvent> events;
    if (camera->next(events, valueOf(blockingDataExchange) != 0 ? blockingWaitMs : 0, backlog))
        for (event::DvsEvent& event : events)
            event.timestamp &= timestampMask;
    return events;
}

void VirtualDriver::setBacklogQuery(const std::function<std::size_t()>& waiting) { backlog = waiting; }

} // namespace davis::driver
