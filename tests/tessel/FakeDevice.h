#pragma once
// A device interface that records what a model does with it. Include tessel/family/Family.h first.

#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "util/Mutex.h"
#include VORNA_FAMILY_HEADER(Model)

namespace VORNA_FAMILY {

using In = std::vector<event::InputEvent>;
using Out = std::vector<event::OutputEvent>;
using Model = VORNA_FAMILY_NAME(Model);
using DeviceAPI = VORNA_FAMILY_NAME(DeviceAPIInterface);

/// Keeps what is written to it, and says what a test gave it to say. The model's thread is known by its empty writes.
/// Threads: thread-safe.
class FakeDevice : public DeviceAPI {
public:
    /// What a test keeps when a model owns the device.
    struct Record {
        util::Mutex mutex;
        util::ConditionVariable changed;
        std::vector<In> writes;                       // without the empty ones
        std::vector<const event::InputEvent*> memory; // of each of them, while it was written
        std::deque<Out> toSay;                        // to the model's thread
        std::uint64_t turns = 0;                      // reads on the model's thread
        std::thread::id modelThread;

        /// Waits until `holds`, called under the mutex, is true; false after ten seconds.
        bool waitUntil(const std::function<bool()>& holds)
        {
            const util::Lock lock(mutex);
            return changed.waitFor(mutex, std::chrono::seconds(10), holds);
        }
        bool waitForWrites(std::size_t count)
        {
            return waitUntil([&] { return writes.size() >= count; });
        }
        /// Until whatever was there to be said at the call has been said, and sent on.
        bool waitForTurns(std::uint64_t more)
        {
            const util::Lock lock(mutex);
            return changed.waitFor(mutex, std::chrono::seconds(10),
                                   [&, until = turns + more] { return turns >= until; });
        }
        void say(Out events)
        {
            const util::Lock lock(mutex);
            toSay.push_back(std::move(events));
        }
        std::vector<In> writesUntilNow()
        {
            const util::Lock lock(mutex);
            return writes;
        }
    };

    explicit FakeDevice(std::shared_ptr<Record> record) : record(std::move(record)) {}

    Out read() override
    {
        const util::Lock lock(record->mutex);
        if (record->modelThread != std::this_thread::get_id())
            return {};
        ++record->turns;
        record->changed.notifyAll();
        if (record->toSay.empty())
            return {};
        Out events = std::move(record->toSay.front());
        record->toSay.pop_front();
        return events;
    }

    void write(const In& events) override
    {
        const util::Lock lock(record->mutex);
        if (events.empty()) {
            record->modelThread = std::this_thread::get_id();
            return;
        }
        record->writes.push_back(events);
        record->memory.push_back(events.data());
        record->changed.notifyAll();
    }

private:
    const std::shared_ptr<Record> record;
};

} // namespace VORNA_FAMILY
