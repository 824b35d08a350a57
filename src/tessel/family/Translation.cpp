// How a configuration becomes events. Compiled once for each family.

#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER_IN(configuration, Translation)

#include <algorithm>
#include <array>
#include <bit>
#include <stdexcept>
#include <string>
#include <tuple>

#include "tessel/family/ChipLayout.h"
#include "tessel/registers/DvsCore.h"
#include "tessel/registers/InputInterface.h"
#include "tessel/registers/LayerCore.h"
#include "tessel/registers/ReadoutCore.h"

namespace VORNA_FAMILY::event {

namespace layercore = tessel::registers::layercore;
namespace dvscore = tessel::registers::dvscore;
namespace inputinterface = tessel::registers::inputinterface;
namespace readoutcore = tessel::registers::readoutcore;

// ---- fields ------------------------------------------------------------------------------------------------------

std::uint8_t translateCNNPooling(std::uint8_t pooling)
{
    switch (pooling) {
    case 2:
        return 1;
    case 4:
        return 2;
    case 8:
        return 3;
    default:
        return 0;
    }
}

std::uint8_t translateCNNStride(std::uint8_t stride) { return translateCNNPooling(stride); }

std::uint8_t translateDVSPooling(std::uint8_t pooling)
{
    switch (pooling) {
    case 2:
        return 1;
    case 4:
        return 2;
    default:
        return 0;
    }
}

bool translateIODriveStrength(std::uint8_t strength) { return strength == 4; }

// ---- registers of a layer: kernel section ------------------------------------------------------------------------
//
// A count "less 1" is worked out in 32 bits and cut to its field, so that 0 wraps to the field's largest value.

std::uint16_t generateLCRegister00(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register00;
    return R()
        .set(R::paddingX, config.dimensions.padding.x)
        .set(R::paddingY, config.dimensions.padding.y)
        .set(R::strideX, translateCNNStride(config.dimensions.stride.x))
        .raw();
}
std::uint16_t generateLCRegister01(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register01;
    return R()
        .set(R::strideY, translateCNNStride(config.dimensions.stride.y))
        .set(R::kernelSizeLess1, config.dimensions.kernel_size - 1U)
        .raw();
}
std::uint16_t generateLCRegister02(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register02;
    return R().set(R::inputFeaturesLess1Low, config.dimensions.input_shape.feature_count - 1U).raw();
}
std::uint16_t generateLCRegister03(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register03;
    return R()
        .set(R::inputFeaturesLess1High, config.dimensions.input_shape.feature_count - 1U)
        .set(R::outputWidthLess1, config.dimensions.output_shape.size.x - 1U)
        .raw();
}
std::uint16_t generateLCRegister04(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register04;
    return R()
        .set(R::outputHeightLess1, config.dimensions.output_shape.size.y - 1U)
        .set(R::outputFeaturesLess1Low, config.dimensions.output_shape.feature_count - 1U)
        .raw();
}
std::uint16_t generateLCRegister05(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register05;
    return R().set(R::outputFeaturesLess1High, config.dimensions.output_shape.feature_count - 1U).raw();
}
std::uint16_t generateLCRegister06(const configuration::CNNLayerFactorySettings& factory)
{
    using R = layercore::Register06;
    return R()
        .set(R::skipKilledWeights, factory.enable_kernel_skip_memory_cell)
        .set(R::clockPulse, factory.kernel.clock_pulse)
        .raw();
}
std::uint16_t generateLCRegister07(const configuration::CNNLayerFactorySettings& factory)
{
    using R = layercore::Register07;
    return R().set(R::clockSetup, factory.kernel.clock_setup).set(R::macroRead, factory.kernel.macro_read).raw();
}
std::uint16_t generateLCRegister08(const configuration::CNNLayerDebugConfig& debug)
{
    using R = layercore::Register08;
    return R()
        .set(R::testSubBlock, debug.kernel.memory_sub_block)
        .set(R::testWordPart, debug.kernel.word_part)
        .set(R::testEnable, debug.kernel.enable)
        .set(R::testReadTiming, debug.kernel.read_timing)
        .raw();
}
std::uint16_t generateLCRegister09(const configuration::CNNLayerDebugConfig& debug)
{
    using R = layercore::Register09;
    return R()
        .set(R::probePoint, debug.probe_points.kernel)
        .set(R::probeEnable, debug.probe_points.kernel_enable)
        .raw();
}

// ---- registers of a layer: leak section --------------------------------------------------------------------------

std::uint16_t generateLCRegister16(const configuration::CNNLayerConfig& config,
                                   const configuration::CNNLayerDebugConfig& debug)
{
    using R = layercore::Register16;
    return R()
        .set(R::outputWidthLess1, config.dimensions.output_shape.size.x - 1U)
        .set(R::leakEnable, config.leak_enable)
        .set(R::probeEnable, debug.probe_points.leak_enable)
        .raw();
}
std::uint16_t generateLCRegister17(const configuration::CNNLayerConfig& config,
                                   const configuration::CNNLayerFactorySettings& factory)
{
    using R = layercore::Register17;
    return R()
        .set(R::outputHeightLess1, config.dimensions.output_shape.size.y - 1U)
        .set(R::skipKilledBiases, factory.enable_leak_skip_memory_cell)
        .raw();
}
std::uint16_t generateLCRegister18(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register18;
    return R().set(R::outputFeaturesLess1Low, config.dimensions.output_shape.feature_count - 1U).raw();
}
std::uint16_t generateLCRegister19(const configuration::CNNLayerConfig& config,
                                   const configuration::CNNLayerFactorySettings& factory)
{
    using R = layercore::Register19;
    return R()
        .set(R::outputFeaturesLess1High, config.dimensions.output_shape.feature_count - 1U)
        .set(R::clockSetup, factory.leak.clock_setup)
        .raw();
}
std::uint16_t generateLCRegister20(const configuration::CNNLayerFactorySettings& factory)
{
    using R = layercore::Register20;
    return R().set(R::macroRead, factory.leak.macro_read).set(R::clockPulse, factory.leak.clock_pulse).raw();
}
// The memory of biases has one block only, so that debug.leak.memory_sub_block reaches no register.
std::uint16_t generateLCRegister21(const configuration::CNNLayerDebugConfig& debug)
{
    using R = layercore::Register21;
    return R()
        .set(R::testWordPart, debug.leak.word_part)
        .set(R::testEnable, debug.leak.enable)
        .set(R::testReadTiming, debug.leak.read_timing)
        .set(R::probePoint, debug.probe_points.leak)
        .raw();
}

// ---- registers of a layer: neuron section ------------------------------------------------------------------------

std::uint16_t generateLCRegister32(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register32;
    return R()
        .set(R::pooling0, translateCNNPooling(config.destinations[0].pooling))
        .set(R::pooling1, translateCNNPooling(config.destinations[1].pooling))
        .set(R::layer0, config.destinations[0].layer)
        .raw();
}
std::uint16_t generateLCRegister33(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register33;
    return R().set(R::featureShift0Low, config.destinations[0].feature_shift).raw();
}
std::uint16_t generateLCRegister34(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register34;
    return R()
        .set(R::featureShift0High, config.destinations[0].feature_shift)
        .set(R::featureShift1Low, config.destinations[1].feature_shift)
        .raw();
}
std::uint16_t generateLCRegister35(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register35;
    return R()
        .set(R::featureShift1High, config.destinations[1].feature_shift)
        .set(R::enable0, config.destinations[0].enable)
        .set(R::enable1, config.destinations[1].enable)
        .set(R::monitorEnable, config.monitor_enable)
        .raw();
}
std::uint16_t generateLCRegister36(const configuration::CNNLayerConfig& config, std::uint64_t layer)
{
    using R = layercore::Register36;
    return R().set(R::layer1, config.destinations[1].layer).set(R::ownLayer, std::uint32_t(layer)).raw();
}
std::uint16_t generateLCRegister37(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register37;
    return R()
        .set(R::outputWidthLess1, config.dimensions.output_shape.size.x - 1U)
        .set(R::outputFeaturesLess1Low, config.dimensions.output_shape.feature_count - 1U)
        .raw();
}
std::uint16_t generateLCRegister38(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register38;
    return R().set(R::outputFeaturesLess1High, config.dimensions.output_shape.feature_count - 1U).raw();
}
std::uint16_t generateLCRegister39(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register39;
    return R().set(R::thresholdHighLow, config.threshold_high).raw();
}
std::uint16_t generateLCRegister40(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register40;
    return R().set(R::thresholdHighHigh, config.threshold_high).raw();
}
std::uint16_t generateLCRegister41(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register41;
    return R().set(R::thresholdLowLow, config.threshold_low).raw();
}
std::uint16_t generateLCRegister42(const configuration::CNNLayerConfig& config)
{
    using R = layercore::Register42;
    return R().set(R::thresholdLowHigh, config.threshold_low).raw();
}
std::uint16_t generateLCRegister43(const configuration::CNNLayerConfig& config,
                                   const configuration::CNNLayerFactorySettings& factory)
{
    using R = layercore::Register43;
    return R()
        .set(R::returnToZero, config.return_to_zero)
        .set(R::skipKilledNeurons, factory.enable_neuron_skip_memory_defect)
        .set(R::clockSetup, factory.neuron.clock_setup)
        .raw();
}
std::uint16_t generateLCRegister44(const configuration::CNNLayerFactorySettings& factory)
{
    using R = layercore::Register44;
    return R().set(R::macroRead, factory.neuron.macro_read).set(R::clockPulse, factory.neuron.clock_pulse).raw();
}
std::uint16_t generateLCRegister45(const configuration::CNNLayerDebugConfig& debug)
{
    using R = layercore::Register45;
    return R()
        .set(R::testSubBlock, debug.neuron.memory_sub_block)
        .set(R::testWordPart, debug.neuron.word_part)
        .set(R::testEnable, debug.neuron.enable)
        .set(R::testReadTiming, debug.neuron.read_timing)
        .raw();
}
std::uint16_t generateLCRegister46(const configuration::CNNLayerDebugConfig& debug)
{
    using R = layercore::Register46;
    return R()
        .set(R::probeEnable, debug.probe_points.neuron_enable)
        .set(R::probePoint, debug.probe_points.neuron)
        .raw();
}

// ---- registers of the readout ------------------------------------------------------------------------------------

namespace {

template <class R>
std::uint16_t generateDelayRegister(const configuration::FactorySettings& factory)
{
    using readoutcore::Delays;
    static_assert(std::tuple_size_v<decltype(factory.readout)> * readoutcore::delaysPerNeuron == Delays::count);
    std::array<std::uint8_t, Delays::count> delays{};
    for (std::size_t i = 0; i < factory.readout.size(); ++i) {
        delays[readoutcore::delaysPerNeuron * i] = factory.readout[i].clock_delay;
        delays[readoutcore::delaysPerNeuron * i + 1] = factory.readout[i].reset_delay;
    }
    return R(Delays::cut(delays, R::number)).raw();
}

} // namespace

std::uint16_t generateRORegister00(const configuration::FactorySettings& factory)
{
    return generateDelayRegister<readoutcore::Register00>(factory);
}
std::uint16_t generateRORegister01(const configuration::FactorySettings& factory)
{
    return generateDelayRegister<readoutcore::Register01>(factory);
}
std::uint16_t generateRORegister02(const configuration::FactorySettings& factory)
{
    return generateDelayRegister<readoutcore::Register02>(factory);
}
std::uint16_t generateRORegister03(const configuration::FactorySettings& factory)
{
    return generateDelayRegister<readoutcore::Register03>(factory);
}
std::uint16_t generateRORegister04(const configuration::FactorySettings& factory)
{
    return generateDelayRegister<readoutcore::Register04>(factory);
}
std::uint16_t generateRORegister05(const configuration::FactorySettings& factory)
{
    return generateDelayRegister<readoutcore::Register05>(factory);
}
std::uint16_t generateRORegister06(const configuration::FactorySettings& factory)
{
    return generateDelayRegister<readoutcore::Register06>(factory);
}
std::uint16_t generateRORegister07(const configuration::FactorySettings& factory)
{
    return generateDelayRegister<readoutcore::Register07>(factory);
}
std::uint16_t generateRORegister08(const configuration::FactorySettings& factory)
{
    return generateDelayRegister<readoutcore::Register08>(factory);
}
std::uint16_t generateRORegister09(const configuration::FactorySettings& factory)
{
    return generateDelayRegister<readoutcore::Register09>(factory);
}
std::uint16_t generateRORegister10(const configuration::FactorySettings& factory)
{
    return generateDelayRegister<readoutcore::Register10>(factory);
}
std::uint16_t generateRORegister11(const configuration::FactorySettings& factory)
{
    return generateDelayRegister<readoutcore::Register11>(factory);
}
std::uint16_t generateRORegister12(const configuration::ReadoutConfig& config)
{
    using R = readoutcore::Register12;
    return R().set(R::thresholdLow, config.threshold).raw();
}
std::uint16_t generateRORegister13(const configuration::ReadoutConfig& config)
{
    using R = readoutcore::Register13;
    return R().set(R::thresholdHigh, config.threshold).raw();
}
std::uint16_t generateRORegister14(const configuration::ReadoutConfig& config)
{
    using R = readoutcore::Register14;
    return R()
        .set(R::lowPassFilterDisable, config.low_pass_filter_disable)
        .set(R::lowPassFilter32Not16, config.low_pass_filter_32_not_16)
        .set(R::inputAddressInterpretation, config.input_address_interpretation)
        .raw();
}
std::uint16_t generateRORegister15(configuration::ReadoutProbePoint probePoint)
{
    using R = readoutcore::Register15;
    return R().set(R::probePoint, probePoint).raw();
}

// ---- registers of the event camera's front end -------------------------------------------------------------------

std::uint16_t generateDVSRegister00(const configuration::DVSLayerConfig& config)
{
    using R = dvscore::Register00;
    return R()
        .set(R::offChannelDisable, !config.off_channel)
        .set(R::onChannelDisable, !config.on_channel)
        .set(R::mergeDisable, !config.merge)
        .set(R::mirrorDiagonal, config.mirror_diagonal)
        .set(R::enable0, config.destinations[0].enable)
        .set(R::enable1, config.destinations[1].enable)
        .set(R::monitorEnable, config.monitor_enable)
        .set(R::monitorSensorEnable, config.monitor_sensor_enable)
        .raw();
}
std::uint16_t generateDVSRegister01(const configuration::DVSLayerConfig& config)
{
    using R = dvscore::Register01;
    return R().set(R::poolingX2, config.pooling.x == 2).set(R::originX, config.origin.x).raw();
}
std::uint16_t generateDVSRegister02(const configuration::DVSLayerConfig& config)
{
    using R = dvscore::Register02;
    return R().set(R::poolingY2, config.pooling.y == 2).set(R::originY, config.origin.y).raw();
}
std::uint16_t generateDVSRegister03(const configuration::DVSLayerConfig& config)
{
    using R = dvscore::Register03;
    return R().set(R::mirrorX, config.mirror.x).set(R::cutX, config.cut.x).raw();
}
std::uint16_t generateDVSRegister04(const configuration::DVSLayerConfig& config)
{
    using R = dvscore::Register04;
    return R().set(R::mirrorY, config.mirror.y).set(R::cutY, config.cut.y).raw();
}
std::uint16_t generateDVSRegister05(const configuration::DVSLayerConfig& config)
{
    using R = dvscore::Register05;
    return R().set(R::layer0, config.destinations[0].layer).set(R::layer1, config.destinations[1].layer).raw();
}
std::uint16_t generateDVSRegister06()
{
    using R = dvscore::Register06;
    return R().set(R::ownLayer, tessel::dvsEventLayer).set(R::sensorLayer, tessel::sensorEventLayer).raw();
}
std::uint16_t generateDVSRegister07(const configuration::DVSLayerConfig& config)
{
    using R = dvscore::Register07;
    return R().set(R::sensorTiming, config.sensor_timing).raw();
}
std::uint16_t generateDVSRegister08(const configuration::DVSLayerConfig& config)
{
    using R = dvscore::Register08;
    return R()
        .set(R::currentControlP3, config.current_control_p3)
        .set(R::currentControlP4, config.current_control_p4)
        .raw();
}
std::uint16_t generateDVSRegister09(const configuration::DVSLayerConfig& config)
{
    using R = dvscore::Register09;
    return R()
        .set(R::currentControlP5, config.current_control_p5)
        .set(R::passSensorEvents, config.pass_sensor_events)
        .set(R::poolingX4, config.pooling.x == 4)
        .set(R::poolingY4, config.pooling.y == 4)
        .raw();
}
std::uint16_t generateDVSRegister10(configuration::DVSProbePoint probePoint)
{
    using R = dvscore::Register10;
    return R().set(R::probePoint, probePoint).raw();
}
std::uint16_t generateDVSRegister11(const configuration::DVSLayerConfig& config)
{
    using R = dvscore::Register11;
    return R()
        .set(R::currentControlP6, config.current_control_p6)
        .set(R::currentControlP7, config.current_control_p7)
        .raw();
}

// ---- registers of the input interface ----------------------------------------------------------------------------

std::uint16_t generateIIRegister00(const configuration::DebugConfig& debug,
                                   const configuration::FactorySettings& factory)
{
    using R = inputinterface::Register00;
    return R()
        .set(R::monitorInputEnable, factory.monitor_input_enable)
        .set(R::strongDrive, translateIODriveStrength(factory.io_drive_strength))
        .set(R::routerProbe0, debug.router0)
        .raw();
}
std::uint16_t generateIIRegister01(const configuration::DebugConfig& debug)
{
    using R = inputinterface::Register01;
    return R().set(R::routerProbe1, debug.router1).set(R::routerProbe2Low, debug.router2).raw();
}
std::uint16_t generateIIRegister02(const configuration::DebugConfig& debug)
{
    using R = inputinterface::Register02;
    return R().set(R::routerProbe2High, debug.router2).set(R::routerProbe3, debug.router3).raw();
}

// ---- register maps -----------------------------------------------------------------------------------------------

RegisterMap toCnnRegisterValues(const configuration::CNNLayerConfig& config, std::uint64_t layer,
                                const configuration::CNNLayerFactorySettings& factory,
                                const configuration::CNNLayerDebugConfig& debug)
{
    return {
        {layercore::Register00::number, generateLCRegister00(config)},
        {layercore::Register01::number, generateLCRegister01(config)},
        {layercore::Register02::number, generateLCRegister02(config)},
        {layercore::Register03::number, generateLCRegister03(config)},
        {layercore::Register04::number, generateLCRegister04(config)},
        {layercore::Register05::number, generateLCRegister05(config)},
        {layercore::Register06::number, generateLCRegister06(factory)},
        {layercore::Register07::number, generateLCRegister07(factory)},
        {layercore::Register08::number, generateLCRegister08(debug)},
        {layercore::Register09::number, generateLCRegister09(debug)},
        {layercore::Register16::number, generateLCRegister16(config, debug)},
        {layercore::Register17::number, generateLCRegister17(config, factory)},
        {layercore::Register18::number, generateLCRegister18(config)},
        {layercore::Register19::number, generateLCRegister19(config, factory)},
        {layercore::Register20::number, generateLCRegister20(factory)},
        {layercore::Register21::number, generateLCRegister21(debug)},
        {layercore::Register32::number, generateLCRegister32(config)},
        {layercore::Register33::number, generateLCRegister33(config)},
        {layercore::Register34::number, generateLCRegister34(config)},
        {layercore::Register35::number, generateLCRegister35(config)},
        {layercore::Register36::number, generateLCRegister36(config, layer)},
        {layercore::Register37::number, generateLCRegister37(config)},
        {layercore::Register38::number, generateLCRegister38(config)},
        {layercore::Register39::number, generateLCRegister39(config)},
        {layercore::Register40::number, generateLCRegister40(config)},
        {layercore::Register41::number, generateLCRegister41(config)},
        {layercore::Register42::number, generateLCRegister42(config)},
        {layercore::Register43::number, generateLCRegister43(config, factory)},
        {layercore::Register44::number, generateLCRegister44(factory)},
        {layercore::Register45::number, generateLCRegister45(debug)},
        {layercore::Register46::number, generateLCRegister46(debug)},
    };
}

RegisterMap toReadoutRegisterValues(const configuration::ReadoutConfig& config,
                                    const configuration::FactorySettings& factory,
                                    configuration::ReadoutProbePoint probePoint)
{
    return {
        {readoutcore::Register00::number, generateRORegister00(factory)},
        {readoutcore::Register01::number, generateRORegister01(factory)},
        {readoutcore::Register02::number, generateRORegister02(factory)},
        {readoutcore::Register03::number, generateRORegister03(factory)},
        {readoutcore::Register04::number, generateRORegister04(factory)},
        {readoutcore::Register05::number, generateRORegister05(factory)},
        {readoutcore::Register06::number, generateRORegister06(factory)},
        {readoutcore::Register07::number, generateRORegister07(factory)},
        {readoutcore::Register08::number, generateRORegister08(factory)},
        {readoutcore::Register09::number, generateRORegister09(factory)},
        {readoutcore::Register10::number, generateRORegister10(factory)},
        {readoutcore::Register11::number, generateRORegister11(factory)},
        {readoutcore::Register12::number, generateRORegister12(config)},
        {readoutcore::Register13::number, generateRORegister13(config)},
        {readoutcore::Register14::number, generateRORegister14(config)},
        {readoutcore::Register15::number, generateRORegister15(probePoint)},
    };
}

RegisterMap toInputInterfaceRegisterValues(const configuration::DebugConfig& debug,
                                           const configuration::FactorySettings& factory)
{
    return {
        {inputinterface::Register00::number, generateIIRegister00(debug, factory)},
        {inputinterface::Register01::number, generateIIRegister01(debug)},
        {inputinterface::Register02::number, generateIIRegister02(debug)},
    };
}

RegisterMap toDVSRegisterValues(const configuration::DVSLayerConfig& config, configuration::DVSProbePoint probePoint)
{
    return {
        {dvscore::Register00::number, generateDVSRegister00(config)},
        {dvscore::Register01::number, generateDVSRegister01(config)},
        {dvscore::Register02::number, generateDVSRegister02(config)},
        {dvscore::Register03::number, generateDVSRegister03(config)},
        {dvscore::Register04::number, generateDVSRegister04(config)},
        {dvscore::Register05::number, generateDVSRegister05(config)},
        {dvscore::Register06::number, generateDVSRegister06()},
        {dvscore::Register07::number, generateDVSRegister07(config)},
        {dvscore::Register08::number, generateDVSRegister08(config)},
        {dvscore::Register09::number, generateDVSRegister09(config)},
        {dvscore::Register10::number, generateDVSRegister10(probePoint)},
        {dvscore::Register11::number, generateDVSRegister11(config)},
    };
}

// ---- memories ----------------------------------------------------------------------------------------------------

namespace {

/// @throws std::out_of_range unless each index of `values` has an element there and, by the strides of `killBits`, in
///         `killBits`
template <class T, std::size_t N>
void requireElements(const util::tensor::Array<T, N>& values, const util::tensor::Array<bool, N>& killBits,
                     std::uint64_t layer, const char* what)
{
    const std::uint64_t count = util::tensor::elementCount(values.dimensions);
    if (count == 0)
        return;
    if (count > values.data.size())
        throw std::out_of_range("Layer[" + std::to_string(layer) + "] " + what +
                                ": fewer elements than dimensions ask");
    // Strides don't fall below zero, so that the last index has the largest offset.
    const auto strides = killBits.strides();
    std::uint64_t last = 0;
    for (std::size_t i = 0; i < N; ++i) {
        const std::uint64_t room = killBits.data.size() - 1 - last;
        const std::uint64_t steps = values.dimensions[i] - 1;
        if (killBits.data.empty() || (steps > 0 && strides[i] > room / steps))
            throw std::out_of_range("Layer[" + std::to_string(layer) + "] " + what +
                                    ": the array of kill bits ends before the values do");
        last += steps * strides[i];
    }
}

void requireElements(const configuration::CNNLayerConfig& config, std::uint64_t layer)
{
    requireElements(config.weights, config.weights_kill_bit, layer, "weights");
    requireElements(config.biases, config.biases_kill_bit, layer, "biases");
    requireElements(config.neurons_initial_value, config.neurons_value_kill_bit, layer, "neuron values");
}

/// Bits of an index that runs below `size`, which is above 0.
int indexBits(std::uint64_t size) { return static_cast<int>(std::bit_width(size - 1)); }

/// Appends the run of events that one pass of the innermost index gives; addresses go on by `addressStep`.
template <class Event, class T>
void appendRun(std::uint8_t layer, const T* values, std::uint64_t count, const std::vector<bool>& killBits,
               std::uint64_t killOffset, std::uint64_t address, std::uint64_t addressStep, InputEvents& events)
{
    for (std::uint64_t i = 0; i < count; ++i, address += addressStep)
        events.emplace_back(Event{layer, static_cast<std::uint32_t>(address), killBits[killOffset + i], values[i]});
}

void appendRegisters(std::uint64_t core, const RegisterMap& registers, InputEvents& events)
{
    for (const auto& [number, word] : registers)
        events.emplace_back(
            WriteRegisterValue{static_cast<std::uint8_t>(core), static_cast<std::uint8_t>(number), word});
}

} // namespace

void weightsArrayToEvents(std::uint64_t layer, const util::tensor::Array4Int8& weights,
                          const util::tensor::Array4Bool& killBits, InputEvents& events)
{
    requireElements(weights, killBits, layer, "weights");
    const auto& size = weights.dimensions;
    if (util::tensor::elementCount(size) == 0)
        return;
    const int inputBits = indexBits(size[1]);
    const int cellShift = inputBits + indexBits(size[0]);
    const auto kill = killBits.strides();
    const signed char* run = weights.data.data();
    for (std::uint64_t o = 0; o < size[0]; ++o)
        for (std::uint64_t i = 0; i < size[1]; ++i)
            for (std::uint64_t a = 0; a < size[2]; ++a, run += size[3])
                appendRun<WriteWeightValue>(static_cast<std::uint8_t>(layer), run, size[3], killBits.data,
                                            o * kill[0] + i * kill[1] + a * kill[2],
                                            (a << cellShift) | (o << inputBits) | i, size[2] << cellShift, events);
}

void neuronStatesArrayToEvents(std::uint64_t layer, const util::tensor::Array3Int16& values,
                               const util::tensor::Array3Bool& killBits, InputEvents& events)
{
    requireElements(values, killBits, layer, "neuron values");
    const auto& size = values.dimensions;
    if (util::tensor::elementCount(size) == 0)
        return;
    const int featureBits = indexBits(size[0]);
    const int columnShift = featureBits + indexBits(size[2]);
    const auto kill = killBits.strides();
    const short* run = values.data.data();
    for (std::uint64_t f = 0; f < size[0]; ++f)
        for (std::uint64_t x = 0; x < size[1]; ++x, run += size[2])
            appendRun<WriteNeuronValue>(static_cast<std::uint8_t>(layer), run, size[2], killBits.data,
                                        f * kill[0] + x * kill[1], (x << columnShift) | f,
                                        std::uint64_t{1} << featureBits, events);
}

void biasArrayToEvents(std::uint64_t layer, const util::tensor::Array1Int16& biases,
                       const util::tensor::Array1Bool& killBits, InputEvents& events)
{
    requireElements(biases, killBits, layer, "biases");
    appendRun<WriteBiasValue>(static_cast<std::uint8_t>(layer), biases.data.data(), biases.dimensions[0], killBits.data,
                              0, 0, 1, events);
}

// ---- the chip ----------------------------------------------------------------------------------------------------

void cnnLayerConfigToEvent(const configuration::CNNLayerConfig& config,
                           const configuration::CNNLayerFactorySettings& factory,
                           const configuration::CNNLayerDebugConfig& debug, std::uint64_t layer, InputEvents& events)
{
    requireElements(config, layer);
    appendRegisters(layer, toCnnRegisterValues(config, layer, factory, debug), events);
    weightsArrayToEvents(layer, config.weights, config.weights_kill_bit, events);
    biasArrayToEvents(layer, config.biases, config.biases_kill_bit, events);
    neuronStatesArrayToEvents(layer, config.neurons_initial_value, config.neurons_value_kill_bit, events);
}

void readoutConfigToEvent(const configuration::ReadoutConfig& config, const configuration::FactorySettings& factory,
                          configuration::ReadoutProbePoint probePoint, InputEvents& events)
{
    appendRegisters(tessel::readoutCore, toReadoutRegisterValues(config, factory, probePoint), events);
}

void inputInterfaceConfigToEvent(const configuration::DebugConfig& debug, const configuration::FactorySettings& factory,
                                 InputEvents& events)
{
    appendRegisters(tessel::inputInterfaceCore, toInputInterfaceRegisterValues(debug, factory), events);
}

void dvsLayerConfigToEvent(const configuration::DVSLayerConfig& config, configuration::DVSProbePoint probePoint,
                           InputEvents& events)
{
    appendRegisters(tessel::dvsCore, toDVSRegisterValues(config, probePoint), events);
}

void VORNA_FAMILY_FUNCTION(ConfigurationToEvent)(const configuration::VORNA_FAMILY_NAME(Configuration) & config,
                                                 InputEvents& events)
{
    std::size_t count = readoutcore::Registers::count + inputinterface::Registers::count + dvscore::Registers::count;
    for (std::size_t layer = 0; layer < config.cnn_layers.size(); ++layer) {
        const configuration::CNNLayerConfig& c = config.cnn_layers[layer];
        requireElements(c, layer); // from here on a count of elements is no larger than the memory that holds them
        count += layercore::Registers::count + util::tensor::elementCount(c.weights.dimensions) +
                 util::tensor::elementCount(c.biases.dimensions) +
                 util::tensor::elementCount(c.neurons_initial_value.dimensions);
    }
    // An empty vector gets what it needs; one that is filled by many calls still grows by factors.
    if (events.capacity() - events.size() < count)
        events.reserve(std::max(events.size() + count, events.empty() ? 0 : 2 * events.capacity()));

    for (std::size_t layer = 0; layer < config.cnn_layers.size(); ++layer)
        cnnLayerConfigToEvent(config.cnn_layers[layer], config.factory_settings.cnn_layers_settings[layer],
                              config.debug_config.cnn_layers_config[layer], layer, events);
    readoutConfigToEvent(config.readout, config.factory_settings, config.debug_config.readout, events);
    inputInterfaceConfigToEvent(config.debug_config, config.factory_settings, events);
    dvsLayerConfigToEvent(config.dvs_layer, config.debug_config.dvs_probe_point, events);
}

InputEvents VORNA_FAMILY_FUNCTION(ConfigurationToEvent)(const configuration::VORNA_FAMILY_NAME(Configuration) & config)
{
    InputEvents events;
    VORNA_FAMILY_FUNCTION(ConfigurationToEvent)(config, events);
    return events;
}

tessel::registers::RegisterContent describeRegister(const WriteRegisterValue& write)
{
    return tessel::registers::describeRegister(write.layer, write.index, write.data);
}

} // namespace VORNA_FAMILY::event
