#include "emulation/usb/Device.h"

#include <utility>

namespace emulation {

void Device::setWaker(std::function<void()> newWaker)
{
    const util::Lock lock(wakerMutex);
    waker = std::move(newWaker);
}

void Device::wake()
{
    const util::Lock lock(wakerMutex);
    if (waker)
        waker();
}

} // namespace emulation
