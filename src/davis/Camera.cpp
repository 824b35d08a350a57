#include "davis/Camera.h"

#include <algorithm>
#include <exception>
#include <future>
#include <system_error>
#include <vector>

#include "davis/caer/Caer.h"
#include "davis/event/PolarityWord.h"

namespace davis {

void usbShutdownHandler(void* self)
{
    auto& camera = *static_cast<detail::Camera*>(self);
    // Whoever holds the lock is ending the reader: one that begins does so after start() has let go of it.
    const std::unique_lock lock(camera.life, std::try_to_lock);
    if (lock && camera.reader.joinable())
        camera.endReader();
}

namespace detail {

namespace {

/// Appends the events of one packet, valid or not.
void appendPacket(const libcaer::events::EventPacket& packet, std::vector<event::DvsEvent>& events)
{
    const auto* memory = reinterpret_cast<const std::byte*>(packet.getHeaderPointer());
    const auto count = static_cast<std::size_t>(packet.getEventNumber());
    event::appendEvents({memory + CAER_EVENT_PACKET_HEADER_SIZE, count * event::PolarityWord::bytes}, events);
}

std::vector<event::DvsEvent> polarityEvents(libcaer::events::EventPacketContainer& container)
{
    std::vector<event::DvsEvent> events;
    for (const auto& packet : container)
        if (packet && packet->getEventType() == POLARITY_EVENT)
            appendPacket(*packet, events);
    return events;
}

} // namespace

std::size_t CameraSourceNode::waitingBatches()
{
    const std::lock_guard lock(destinationsMutex);
    std::size_t most = 0;
    for (const auto& destination : destinations)
        if (const auto channel = destination.lock())
            most = std::max(most, channel->size_approx());
    return most;
}

Camera::Camera(std::unique_ptr<libcaer::devices::usb> opened) : device(std::move(opened))
{
    caer::setBacklogQuery(*device, [this] { return source.waitingBatches(); });
}

Camera::~Camera()
{
    const std::lock_guard lock(life);
    if (reader.joinable())
        std::terminate();
}

void Camera::start()
{
    std::promise<void> unlocked;
    {
        const std::lock_guard lock(life);
        running = true;
        try {
            // over a joinable thread this ends the process
            reader = std::thread([this, lifeIsFree = unlocked.get_future()]() noexcept {
                lifeIsFree.wait(); // an unplug from now on is not taken for one during a stop
                readerLoop();
            });
        } catch (...) { // the system has no thread left
            running = false;
            throw;
        }
    }
    unlocked.set_value();
}

void Camera::stop()
{
    const std::lock_guard lock(life);
    endReader();
}

bool Camera::isRunning() const { return running; }

bool Camera::stopIfRunning()
{
    const std::lock_guard lock(life);
    if (!reader.joinable())
        return false;
    endReader();
    return true;
}

// Under `life`.
void Camera::endReader()
{
    running = false;
    reader.join();
}

void Camera::readerLoop()
{
    device->dataStart(nullptr, nullptr, nullptr, &usbShutdownHandler, this);
    device->configSet(CAER_HOST_CONFIG_DATAEXCHANGE, CAER_HOST_CONFIG_DATAEXCHANGE_BLOCKING, 1);
    while (running) {
        const auto container = device->dataGet();
        if (!container)
            continue;
        source.write(polarityEvents(*container)); // sends nothing when there are none
    }
    device->dataStop();
}

} // namespace detail
} // namespace davis
