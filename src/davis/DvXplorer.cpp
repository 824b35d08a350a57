#include "davis/DvXplorer.h"

#include <cstdio>

#include "davis/driver/Open.h"

namespace davis {

namespace {

std::unique_ptr<driver::Driver> open()
{
    auto camera = driver::open(driver::CameraKind::dvXplorer);
    const driver::DriverInfo info = camera->info();
    std::printf("%s --- ID: %d, DVS X: %d, DVS Y: %d, Firmware: %d, Logic: %d.\n", info.name.c_str(), info.id,
                info.width, info.height, info.firmwareVersion, info.logicVersion);
    camera->sendDefaultConfig();
    camera->configure(driver::blockingDataExchange, 1);
    std::printf("%s --- ID: %d, Master: %d, DVS X: %d, DVS Y: %d, Logic: %d.\n", info.name.c_str(), info.id,
                info.isMaster, info.width, info.height, info.logicVersion);
    std::fflush(stdout); // the lines come before what a script prints next
    return camera;
}

} // namespace

DvXplorer::DvXplorer() : Camera(open()) {}

} // namespace davis
