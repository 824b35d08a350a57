#include "emulation/usb/Device.h"

#include <utility>

namespace emulation {

void Device::setWaker(std::function<void()> newWaker)
{
    const std::lock_guard lock(wakerMutex);
    waker = std::move(newWaker);
}

void Device::wake()
{
    const std::lock_guard lock(wakerMutex);
    if (waker)
        waker();
}

} // namespace emulation
