#include "davis/DvXplorer.h"

#include <cstdio>

#include "davis/caer/Caer.h"

namespace davis {

namespace {

std::unique_ptr<libcaer::devices::usb> open()
{
    auto device = std::make_unique<libcaer::devices::dvXplorer>(std::uint16_t{1});
    const caer_dvx_info info = device->infoGet();
    std::printf("%s --- ID: %d, DVS X: %d, DVS Y: %d, Firmware: %d, Logic: %d.\n", info.deviceString, info.deviceID,
                info.dvsSizeX, info.dvsSizeY, info.firmwareVersion, info.logicVersion);
    device->sendDefaultConfig();
    device->configSet(CAER_HOST_CONFIG_DATAEXCHANGE, CAER_HOST_CONFIG_DATAEXCHANGE_BLOCKING, 1);
    std::printf("%s --- ID: %d, Master: %d, DVS X: %d, DVS Y: %d, Logic: %d.\n", info.deviceString, info.deviceID,
                info.deviceIsMaster, info.dvsSizeX, info.dvsSizeY, info.logicVersion);
    std::fflush(stdout); // the lines belong before whatever a script prints next
    return device;
}

} // namespace

DvXplorer::DvXplorer() : Camera(open()) {}

} // namespace davis
