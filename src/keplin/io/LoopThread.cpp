#include "keplin/io/LoopThread.h"

#include <utility>

namespace keplin {

void LoopThread::start(std::function<void()> body)
{
    if (isLoop())
        return;
    const util::Lock lock(mutex);
    if (run)
        return;
    join(); // of a loop that stopped itself
    run = true;
    try {
        // an exception in the loop ends the process: nobody could catch it
        thread = std::thread([this, body = std::move(body)]() noexcept {
            loop = std::this_thread::get_id();
            body();
            loop = std::thread::id();
        });
    } catch (...) {
        run = false;
        throw;
    }
}

void LoopThread::stop()
{
    if (isLoop()) {
        run = false;
        return;
    }
    const util::Lock lock(mutex); // first: a start() under way would set `run` after it was cleared
    run = false;
    join();
}

bool LoopThread::whileStopped(const std::function<void()>& change)
{
    if (isLoop())
        return false;
    const util::Lock lock(mutex);
    if (run)
        return false;
    join();
    change();
    return true;
}

bool LoopThread::isLoop() const { return loop == std::this_thread::get_id(); }

void LoopThread::join()
{
    if (thread.joinable())
        thread.join();
}

} // namespace keplin
