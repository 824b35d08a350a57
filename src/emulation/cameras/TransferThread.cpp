#include "emulation/cameras/TransferThread.h"

#include <utility>

namespace emulation {

TransferThread::TransferThread() : thread([this]() noexcept { run(); }) {}

TransferThread::~TransferThread()
{
    {
        const util::Lock lock(mutex);
        ending = true;
        changed.notifyAll();
    }
    thread.join();
}

std::uint64_t TransferThread::post(std::function<void()> work)
{
    const util::Lock lock(mutex);
    queue.push_back(std::move(work));
    changed.notifyAll();
    return ++posted;
}

void TransferThread::waitFor(std::uint64_t number)
{
    const util::Lock lock(mutex);
    changed.wait(mutex, [&]() VORNA_REQUIRES(mutex) { return done >= number; });
}

void TransferThread::run()
{
    util::Lock lock(mutex);
    for (;;) {
        changed.wait(mutex, [this]() VORNA_REQUIRES(mutex) { return ending || !queue.empty(); });
        if (queue.empty())
            return;
        const std::function<void()> work = std::move(queue.front());
        queue.pop_front();
        lock.unlock();
        if (work)
            work();
        lock.lock();
        ++done;
        changed.notifyAll();
    }
}

} // namespace emulation
