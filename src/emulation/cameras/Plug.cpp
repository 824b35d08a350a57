// Makes virtual cameras: checks the options and puts the camera on the bus.

#include <atomic>
#include <cmath>
#include <stdexcept>

#include "emulation/cameras/Replay.h"
#include "emulation/cameras/Scene.h"
#include "emulation/cameras/VirtualCamera.h"

namespace emulation {

using davis::driver::CameraInfo;
using davis::driver::CameraKind;
using davis::driver::VirtualBus;

namespace {

struct KindRow {
    CameraKind kind;
    const char* model; // a DAVIS adds its width
    std::uint16_t width;
    std::uint16_t height;
};
constexpr KindRow davisRow{CameraKind::davis, "DAVIS", 346, 260};
constexpr KindRow dvXplorerRow{CameraKind::dvXplorer, "DVXplorer", 640, 480};

constexpr std::uint16_t largestSide = 4096;
constexpr double mostInBatch = 1e7; // 160 MB

// Options are named as a script gives them.
void require(bool good, const std::string& option, const std::string& range)
{
    if (!good)
        throw std::invalid_argument("virtual camera: " + option + " must be " + range);
}

template <class Options>
void checkCommon(const Options& options)
{
    require(options.width <= largestSide, "width", "0 to 4096");
    require(options.height <= largestSide, "height", "0 to 4096");
    require(options.batchUs >= 1, "batch_us", "1 or more");
    require(std::isfinite(options.speed) && options.speed > 0, "speed", "above 0");
    require(options.maxBacklog >= 1, "max_backlog", "1 or more");
}

void checkScene(const SceneOptions& options)
{
    checkCommon(options);
    const auto weight = [](double value) { return std::isfinite(value) && value >= 0 && value <= 1e9; };
    require(weight(options.movingBars), "moving_bars", "0 to 1e9");
    require(weight(options.rotatingDot), "rotating_dot", "0 to 1e9");
    require(weight(options.noise), "noise", "0 to 1e9");
    require(options.movingBars + options.rotatingDot + options.noise > 0,
            "one at least of moving_bars, rotating_dot, noise", "above 0");
    require(options.eventsPerSecond >= 1 && options.eventsPerSecond <= 1e8, "events_per_second", "1 to 1e8");
    require(options.durationUs >= 0, "duration_us", "0 (endless) or more");
    require(options.eventsPerSecond * options.batchUs / 1e6 <= mostInBatch, "events_per_second times batch_us",
            "10 million events a batch at most");
}

std::shared_ptr<VirtualCamera> plug(const KindRow& row, std::uint16_t width, std::uint16_t height,
                                    std::unique_ptr<Content> content, Pace pace)
{
    static std::atomic<unsigned> plugged = 0;
    CameraInfo info;
    info.model = row.model;
    if (row.kind == CameraKind::davis)
        info.model += std::to_string(width);
    const std::string number = std::to_string(++plugged % 10'000);
    info.serialNumber = "VIRT" + std::string(4 - number.size(), '0') + number;
    info.width = static_cast<std::int16_t>(width);
    info.height = static_cast<std::int16_t>(height);
    auto camera = std::make_shared<VirtualCamera>(row.kind, info, std::move(content), pace);
    VirtualBus::instance().plug(camera);
    return camera;
}

std::shared_ptr<VirtualCamera> plugScene(const KindRow& row, SceneOptions options)
{
    checkScene(options);
    if (options.width == 0)
        options.width = row.width;
    if (options.height == 0)
        options.height = row.height;
    return plug(row, options.width, options.height, std::make_unique<Scene>(options),
                {options.realtime, options.speed, options.maxBacklog});
}

std::shared_ptr<VirtualCamera> plugRecording(const KindRow& row, const std::string& path, const ReplayOptions& options)
{
    checkCommon(options);
    auto replay = std::make_unique<Replay>(path, options);
    const auto recorded = replay->sensorSize().value_or(davis::recording::SensorSize{row.width, row.height});
    require(recorded.width <= largestSide && recorded.height <= largestSide, "the recording's sensor",
            "4096 columns and rows at most");
    const std::uint16_t width = options.width != 0 ? options.width : recorded.width;
    const std::uint16_t height = options.height != 0 ? options.height : recorded.height;
    return plug(row, width, height, std::move(replay), {options.realtime, options.speed, options.maxBacklog});
}

} // namespace

std::shared_ptr<VirtualCamera> plugVirtualDavis(const SceneOptions& scene) { return plugScene(davisRow, scene); }
std::shared_ptr<VirtualCamera> plugVirtualDvXplorer(const SceneOptions& scene)
{
    return plugScene(dvXplorerRow, scene);
}

std::shared_ptr<VirtualCamera> plugVirtualDavisRecording(const std::string& path, const ReplayOptions& options)
{
    return plugRecording(davisRow, path, options);
}

std::shared_ptr<VirtualCamera> plugVirtualDvXplorerRecording(const std::string& path, const ReplayOptions& options)
{
    return plugRecording(dvXplorerRow, path, options);
}

std::vector<std::shared_ptr<VirtualCamera>> virtualCameras()
{
    std::vector<std::shared_ptr<VirtualCamera>> cameras;
    for (const auto& plugged : VirtualBus::instance().cameras())
        if (auto camera = std::dynamic_pointer_cast<VirtualCamera>(plugged))
            cameras.push_back(std::move(camera));
    return cameras;
}

void unplugAllVirtualCameras()
{
    for (const auto& camera : virtualCameras())
        camera->unplug();
}

} // namespace emulation
