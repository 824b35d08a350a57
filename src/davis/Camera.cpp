#include "davis/Camera.h"

#include <algorithm>
#include <exception>
#include <system_error>

#include "davis/driver/Driver.h"

namespace davis {

void usbShutdownHandler(void* self) { static_cast<detail::Camera*>(self)->running = false; }

namespace detail {

std::size_t CameraSourceNode::waitingBatches()
{
    const util::Lock lock(destinationsMutex);
    std::size_t most = 0;
    for (const auto& destination : destinations)
        if (const auto channel = destination.lock())
            most = std::max(most, channel->size_approx());
    return most;
}

Camera::Camera(std::unique_ptr<driver::Driver> opened) : device(std::move(opened))
{
    device->setBacklogQuery([this] { return source.waitingBatches(); });
}

Camera::~Camera()
{
    const util::Lock lock(life);
    if (running)
        std::terminate();
    endReader();
}

void Camera::start()
{
    const util::Lock lock(life);
    if (!running)
        endReader(); // of a run that failed
    running = true;
    try {
        reader = std::thread([this]() noexcept { readerLoop(); }); // over a joinable thread this ends the process
    } catch (...) {                                                // the system has no thread left
        running = false;
        throw;
    }
}

void Camera::stop()
{
    if (!stopIfRunning())
        throw std::system_error(std::make_error_code(std::errc::invalid_argument));
}

bool Camera::isRunning() const { return running; }

bool Camera::stopIfRunning()
{
    const util::Lock lock(life);
    return endReader();
}

/// Joins the reader, if there is one. True when it ran until now, false when there is none or it ended by itself.
bool Camera::endReader()
{
    const bool ran = running.exchange(false);
    if (reader.joinable())
        reader.join();
    return ran;
}

void Camera::readerLoop()
{
    device->start(&usbShutdownHandler, this);
    device->configure(driver::blockingDataExchange, 1);
    while (running)
        source.write(device->get()); // sends nothing when there are no events
    device->stop();
}

} // namespace detail
} // namespace davis
