#include "davis/Davis240.h"

#include <cstdio>

#include "davis/caer/Caer.h"

namespace davis {

namespace {

/// A little slower photoreceptors than libcaer's default, for less noise.
void tuneBiases(const libcaer::devices::davis& device)
{
    struct Bias {
        std::uint8_t address;
        caer_bias_coarsefine value;
    };
    //                                            coarse fine enabled sexN typeNormal currentLevelNormal
    const Bias pr{DAVIS240_CONFIG_BIAS_PRBP, {2, 116, true, false, true, true}};
    const Bias prsf{DAVIS240_CONFIG_BIAS_PRSFBP, {1, 33, true, false, true, true}};
    for (const Bias& bias : {pr, prsf})
        device.configSet(DAVIS_CONFIG_BIAS, bias.address, caerBiasCoarseFineGenerate(bias.value));

    const auto readBack = [&](const Bias& bias) {
        return caerBiasCoarseFineParse(static_cast<std::uint16_t>(device.configGet(DAVIS_CONFIG_BIAS, bias.address)));
    };
    const caer_bias_coarsefine prNow = readBack(pr);
    const caer_bias_coarsefine prsfNow = readBack(prsf);
    std::printf("New bias values --- PR-coarse: %d, PR-fine: %d, PRSF-coarse: %d, PRSF-fine: %d.\n", prNow.coarseValue,
                prNow.fineValue, prsfNow.coarseValue, prsfNow.fineValue);
}

std::unique_ptr<libcaer::devices::usb> open()
{
    auto device = std::make_unique<libcaer::devices::davis>(std::uint16_t{1});
    const caer_davis_info info = device->infoGet();
    std::printf("%s --- ID: %d, Master: %d, DVS X: %d, DVS Y: %d, Logic: %d.\n", info.deviceString, info.deviceID,
                info.deviceIsMaster, info.dvsSizeX, info.dvsSizeY, info.logicVersion);
    device->sendDefaultConfig();
    tuneBiases(*device);
    std::fflush(stdout); // the lines belong before whatever a script prints next
    return device;
}

} // namespace

Davis240::Davis240() : Camera(open()) {}

} // namespace davis
