// How the model of a chip works. Compiled once for each family.

#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER(Model)

#include <sstream>
#include <stdexcept>
#include <utility>

#include "device/Log.h"
#include VORNA_FAMILY_HEADER_IN(configuration, Translation)
#include VORNA_FAMILY_HEADER_IN(configuration, Validation)

namespace VORNA_FAMILY {

namespace {

const device::Log& logger()
{
    static const device::Log log(VORNA_FAMILY_TEXT "::" VORNA_FAMILY_TEXT_OF(VORNA_FAMILY_NAME(Model)));
    return log;
}

} // namespace

using Model = VORNA_FAMILY_NAME(Model);

Model::VORNA_FAMILY_NAME(Model)(std::unique_ptr<VORNA_FAMILY_NAME(DeviceAPIInterface)> device)
    : deviceInterface(std::move(device))
{
    if (!deviceInterface)
        throw std::invalid_argument("A model needs a device interface.");
    thread = std::thread(&Model::writeFromSinkReadToSource, this);
}

Model::~VORNA_FAMILY_NAME(Model)() { stop(); }

void Model::stop()
{
    std::call_once(stopped, [this] {
        running = false;
        running.notify_one(); // it sleeps on the flag when the device interface is gone
        thread.join();
    });
}

std::unique_ptr<device::DeviceAPI> Model::releaseDeviceAPI()
{
    logger().debug("releaseDeviceAPI");
    released = true;
    const util::Lock lock(deviceMutex);
    return std::move(deviceInterface);
}

void Model::applyConfiguration(const configuration::VORNA_FAMILY_NAME(Configuration) & config)
{
    logger().debug("applyConfiguration");
    std::ostringstream findings;
    if (!configuration::validate(config, findings)) {
        logger().debug("applyConfiguration refused:\n" + findings.str());
        throw std::runtime_error(findings.str());
    }
    std::vector<event::InputEvent> events;
    event::VORNA_FAMILY_FUNCTION(ConfigurationToEvent)(config, events);
    write(events);
}

std::vector<event::OutputEvent> Model::read()
{
    return withDevice([](auto& device) { return device.read(); });
}

void Model::write(const std::vector<event::InputEvent>& events)
{
    withDevice([&](auto& device) { device.write(events); });
}

// One exchange with the chip. False when the device interface is gone.
bool Model::serve(const std::vector<event::InputEvent>& events, std::vector<event::OutputEvent>& received)
{
    const util::SharedLock lock(deviceMutex);
    if (released)
        return false;
    deviceInterface->write(events);
    received = deviceInterface->read();
    return true;
}

void Model::writeFromSinkReadToSource() noexcept
{
    std::vector<event::OutputEvent> received;
    while (running) {
        sink.apply();
        if (serve(sink.takeEvents(), received))
            source.write(std::move(received)); // for no events it sends nothing, and forgets no dead destination
        else
            running.wait(true);
    }
}

} // namespace VORNA_FAMILY
