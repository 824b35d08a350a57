#pragma once
// Both chip families as a typed test sees them, and a device interface that tells what a model does with it.

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "ravik/MemoryChip.h"
#include "ravik/Model.h"
#include "ravik/configuration/Translation.h"
#include "ravik/configuration/Validation.h"
#include "tessel/MemoryChip.h"
#include "tessel/Model.h"
#include "tessel/configuration/Translation.h"
#include "tessel/configuration/Validation.h"

namespace chips {

// What both families have under the same name.
#define CHIPS_EVENTS(family)                                 \
    using InputEvent = family::event::InputEvent;            \
    using OutputEvent = family::event::OutputEvent;          \
    using Spike = family::event::Spike;                      \
    using RegisterValue = family::event::RegisterValue;      \
    using ReadRegister = family::event::ReadRegisterValue;   \
    using WriteRegister = family::event::WriteRegisterValue; \
    using MemoryChip = family::MemoryChip;                   \
    using MemoryModel = family::MemoryModel;                 \
    using MemoryDevice = family::MemoryDeviceAPI

struct Tessel {
    CHIPS_EVENTS(tessel);
    using Model = tessel::TesselModel;
    using DeviceAPI = tessel::TesselDeviceAPIInterface;
    using Configuration = tessel::configuration::TesselConfiguration;
    static std::vector<InputEvent> translate(const Configuration& c)
    {
        return tessel::event::tesselConfigurationToEvent(c);
    }
};

struct Ravik {
    CHIPS_EVENTS(ravik);
    using Model = ravik::RavikModel;
    using DeviceAPI = ravik::RavikDeviceAPIInterface;
    using Configuration = ravik::configuration::RavikConfiguration;
    static std::vector<InputEvent> translate(const Configuration& c)
    {
        return ravik::event::ravikConfigurationToEvent(c);
    }
};

#undef CHIPS_EVENTS

/// Notes what is written to it, and says what a test gave it to say. The model's thread is known by its empty writes.
/// Threads: thread-safe.
template <class Family>
class FakeDevice : public Family::DeviceAPI {
public:
    using In = std::vector<typename Family::InputEvent>;
    using Out = std::vector<typename Family::OutputEvent>;

    /// What a test keeps when a model owns the device.
    struct Notes {
        std::mutex mutex;
        std::condition_variable changed;
        std::vector<In> writes;                                 // without the empty ones
        std::vector<const typename Family::InputEvent*> memory; // of each of them, while it was written
        std::deque<Out> toSay, toSayToOthers;                   // for the model's thread, and for other threads
        std::uint64_t turns = 0;                                // reads on the model's thread
        std::thread::id modelThread;

        /// Waits until `holds`, looked at under the mutex, is true; false after ten seconds.
        bool waitUntil(const std::function<bool()>& holds)
        {
            std::unique_lock lock(mutex);
            return changed.wait_for(lock, std::chrono::seconds(10), holds);
        }
        bool waitForWrites(std::size_t count)
        {
            return waitUntil([&] { return writes.size() >= count; });
        }
        /// Until whatever was there to be said at the call has been said, and sent on.
        bool waitForTurns(std::uint64_t more)
        {
            std::uint64_t until = 0;
            {
                const std::lock_guard lock(mutex);
                until = turns + more;
            }
            return waitUntil([&] { return turns >= until; });
        }
        void say(Out events)
        {
            const std::lock_guard lock(mutex);
            toSay.push_back(std::move(events));
        }
        void sayToOthers(Out events)
        {
            const std::lock_guard lock(mutex);
            toSayToOthers.push_back(std::move(events));
        }
        std::vector<In> writesUntilNow()
        {
            const std::lock_guard lock(mutex);
            return writes;
        }
    };

    explicit FakeDevice(std::shared_ptr<Notes> notes) : notes(std::move(notes)) {}

    Out read() override
    {
        const std::lock_guard lock(notes->mutex);
        const bool forModel = notes->modelThread == std::this_thread::get_id();
        if (forModel) {
            ++notes->turns;
            notes->changed.notify_all();
        }
        auto& from = forModel ? notes->toSay : notes->toSayToOthers;
        if (from.empty())
            return {};
        Out events = std::move(from.front());
        from.pop_front();
        return events;
    }

    void write(const In& events) override
    {
        const std::lock_guard lock(notes->mutex);
        if (events.empty()) {
            notes->modelThread = std::this_thread::get_id();
            return;
        }
        notes->writes.push_back(events);
        notes->memory.push_back(events.data());
        notes->changed.notify_all();
    }

    const std::shared_ptr<Notes> notes;
};

/// A model over such a device.
template <class Family>
struct Rig {
    using Device = FakeDevice<Family>;

    std::shared_ptr<typename Device::Notes> notes = std::make_shared<typename Device::Notes>();
    std::unique_ptr<typename Family::Model> model =
        std::make_unique<typename Family::Model>(std::make_unique<Device>(notes));
};

} // namespace chips
