#include "emulation/cameras/Scene.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace emulation {

using davis::event::DvsEvent;

namespace {

constexpr double usPerSecond = 1e6;
constexpr double barWidthsPerSecond = 1.0; // a bar crosses the sensor in a second
constexpr double dotTurnsPerSecond = 2.0;
constexpr unsigned barCount = 4;
constexpr std::int64_t momentUs = 1000; // positions are computed once in this time, for speed

/// One of four 16-bit numbers of a 64-bit draw.
constexpr std::uint32_t part(std::uint64_t bits, unsigned index)
{
    return static_cast<std::uint32_t>((bits >> (16 * index)) & 0xFFFF);
}

/// A 16-bit number scaled to 0 .. limit - 1.
constexpr std::uint32_t scaled(std::uint32_t number, std::uint32_t limit) { return number * limit >> 16; }

std::uint16_t clampedPixel(double position, std::uint16_t limit)
{
    return static_cast<std::uint16_t>(std::clamp(position, 0.0, static_cast<double>(limit - 1)));
}

} // namespace

struct Scene::Moment {
    double barShift; // pixels to the right
    double dotX, dotY;
    double motionX, motionY; // direction of the dot, length 1
};

Scene::Scene(const SceneOptions& checked) : options(checked)
{
    const double all = options.movingBars + options.rotatingDot + options.noise;
    constexpr double draws = 65'536;
    barsBelow = static_cast<std::uint32_t>(std::lround(draws * (options.movingBars / all)));
    dotBelow = static_cast<std::uint32_t>(std::lround(draws * ((options.movingBars + options.rotatingDot) / all)));
    rewind();
}

void Scene::rewind()
{
    random.seed(options.seed);
    nowUs = 0;
    emitted = 0;
}

std::uint64_t Scene::eventsUntil(std::int64_t timeUs) const
{
    return static_cast<std::uint64_t>(static_cast<double>(timeUs) * (options.eventsPerSecond / usPerSecond));
}

bool Scene::next(std::vector<DvsEvent>& batch)
{
    batch.clear();
    const std::int64_t end = options.durationUs > 0 ? options.durationUs : std::numeric_limits<std::int64_t>::max();
    std::int64_t slotEnd = nowUs;
    std::uint64_t count = 0;
    while (count == 0 && nowUs < end) {
        slotEnd = std::min(end, nowUs + options.batchUs);
        count = eventsUntil(slotEnd) - emitted;
        if (count == 0)
            nowUs = slotEnd;
    }
    if (count == 0)
        return false;

    batch.reserve(count);
    const double stepUs = static_cast<double>(slotEnd - nowUs) / static_cast<double>(count);
    Moment moment = momentAt(nowUs);
    std::int64_t momentEnd = nowUs + momentUs;
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::int64_t timestamp = nowUs + static_cast<std::int64_t>(static_cast<double>(i) * stepUs);
        if (timestamp >= momentEnd) {
            moment = momentAt(timestamp);
            momentEnd = timestamp + momentUs;
        }
        batch.push_back(draw(moment, timestamp));
    }
    nowUs = slotEnd;
    emitted += count;
    return true;
}

Scene::Moment Scene::momentAt(std::int64_t timeUs) const
{
    const double seconds = static_cast<double>(timeUs) / usPerSecond;
    const double angle = 2 * std::numbers::pi * std::fmod(seconds * dotTurnsPerSecond, 1.0);
    const double orbit = std::min(options.width, options.height) / 3.0;
    return {options.width * std::fmod(seconds * barWidthsPerSecond, 1.0), options.width / 2.0 + orbit * std::cos(angle),
            options.height / 2.0 + orbit * std::sin(angle), -std::sin(angle), std::cos(angle)};
}

DvsEvent Scene::draw(const Moment& moment, std::int64_t timestamp)
{
    const std::uint64_t bits = random();
    const std::uint32_t which = part(bits, 0);
    DvsEvent event = which < barsBelow  ? barEvent(moment, bits)
                     : which < dotBelow ? dotEvent(moment, bits)
                                        : noiseEvent(bits);
    event.timestamp = timestamp;
    return event;
}

// A bright bar brightens the pixels that its right edge reaches and darkens those that its left edge leaves.
DvsEvent Scene::barEvent(const Moment& moment, std::uint64_t bits) const
{
    constexpr unsigned edges = 2 * barCount;
    constexpr std::uint32_t edgeBlur = 3; // pixels
    const std::uint32_t edge = scaled(part(bits, 1), edges);
    const double at = moment.barShift + options.width * (edge / static_cast<double>(edges));
    const auto column = static_cast<std::uint32_t>(at) + scaled(part(bits, 2), edgeBlur);
    DvsEvent event;
    event.x = static_cast<std::uint16_t>(column % options.width);
    event.y = static_cast<std::uint16_t>(scaled(part(bits, 3), options.height));
    event.polarity = edge % 2 != 0;
    return event;
}

// The rim of the dot: bright where it moves to, dark where it comes from.
DvsEvent Scene::dotEvent(const Moment& moment, std::uint64_t bits) const
{
    static const auto rim = [] {
        std::array<std::array<double, 2>, 256> directions;
        for (std::size_t i = 0; i < directions.size(); ++i) {
            const double angle = 2 * std::numbers::pi * static_cast<double>(i) / static_cast<double>(directions.size());
            directions[i] = {std::cos(angle), std::sin(angle)};
        }
        return directions;
    }();
    const double radius = std::max(1.0, std::min(options.width, options.height) / 16.0);
    const auto& [x, y] = rim[scaled(part(bits, 1), static_cast<std::uint32_t>(rim.size()))];
    DvsEvent event;
    event.x = clampedPixel(moment.dotX + radius * x, options.width);
    event.y = clampedPixel(moment.dotY + radius * y, options.height);
    event.polarity = x * moment.motionX + y * moment.motionY > 0;
    return event;
}

DvsEvent Scene::noiseEvent(std::uint64_t bits) const
{
    DvsEvent event;
    event.x = static_cast<std::uint16_t>(scaled(part(bits, 1), options.width));
    event.y = static_cast<std::uint16_t>(scaled(part(bits, 2), options.height));
    event.polarity = (part(bits, 3) & 1) != 0;
    return event;
}

} // namespace emulation
