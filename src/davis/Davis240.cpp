#include "davis/Davis240.h"

#include <cstdio>

#include "davis/driver/Open.h"

namespace davis {

namespace {

/// Slightly slower photoreceptors than libcaer's default, for less noise.
void tuneBiases(driver::Driver& camera)
{
    //                                             coarse fine enabled sexN typeNormal currentLevelNormal
    camera.setBias(driver::photoreceptorBias, {2, 116, true, false, true, true});
    camera.setBias(driver::sourceFollowerBias, {1, 33, true, false, true, true});

    const driver::CoarseFineBias pr = camera.bias(driver::photoreceptorBias);
    const driver::CoarseFineBias prsf = camera.bias(driver::sourceFollowerBias);
    std::printf("New bias values --- PR-coarse: %d, PR-fine: %d, PRSF-coarse: %d, PRSF-fine: %d.\n", pr.coarse, pr.fine,
                prsf.coarse, prsf.fine);
}

std::unique_ptr<driver::Driver> open()
{
    auto camera = driver::open(driver::CameraKind::davis);
    const driver::DriverInfo info = camera->info();
    std::printf("%s --- ID: %d, Master: %d, DVS X: %d, DVS Y: %d, Logic: %d.\n", info.name.c_str(), info.id,
                info.isMaster, info.width, info.height, info.logicVersion);
    camera->sendDefaultConfig();
    tuneBiases(*camera);
    std::fflush(stdout); // the lines come before what a script prints next
    return camera;
}

} // namespace

Davis240::Davis240() : Camera(open()) {}

} // namespace davis
