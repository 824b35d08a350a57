#pragma once
// What the camera classes need of a camera, be it a virtual one (VirtualDriver) or a real one through libcaer
// (Libcaer.cpp). open() chooses at run time.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "davis/driver/CoarseFineBias.h"
#include "davis/event/DvsEvent.h"

namespace davis::driver {

/// libcaer's device type numbers.
enum class CameraKind : std::uint16_t { davis = 4, dvXplorer = 8 };

/// "Failed to open a DAVIS camera (device type 4, id 1): ", the beginning of an error text; the reason follows it.
std::string failedToOpen(CameraKind kind);

/// The number that an opened camera gets.
constexpr std::uint16_t deviceId = 1;

/// Addresses of the settings that the cameras use. Settings of a negative module belong to the host.
struct Setting {
    std::int8_t module;
    std::uint8_t parameter;
};
constexpr Setting blockingDataExchange{-2, 1}; ///< 1: get() waits for data
constexpr std::int8_t biasModule = 5;
constexpr std::uint8_t photoreceptorBias = 8;
constexpr std::uint8_t sourceFollowerBias = 9;

/// What the cameras print.
struct DriverInfo {
    std::string name; ///< model, id, serial number, place on the bus
    int id = 0;
    bool isMaster = false;
    int width = 0;  ///< columns
    int height = 0; ///< rows
    int firmwareVersion = 0;
    int logicVersion = 0;
};

/// An open camera, closed by the destructor.
///
/// Failures are std::runtime_error; the text begins with the camera's name.
/// Threads: for one thread at a time. The shutdown callback runs on the thread that also completes control transfers.
/// Every other function of this class may wait for such a transfer, so the callback must not wait for a thread that is
/// in one. The destructor waits for the callback.
class Driver {
public:
    Driver() = default;
    Driver(const Driver&) = delete;
    Driver& operator=(const Driver&) = delete;
    virtual ~Driver() = default;

    virtual DriverInfo info() const = 0;

    virtual void sendDefaultConfig() = 0;
    virtual void configure(Setting setting, std::uint32_t value) = 0;
    virtual std::uint32_t configuration(Setting setting) const = 0;
    /// Sets a bias current of a DAVIS.
    /// @param address  photoreceptorBias, sourceFollowerBias
    virtual void setBias(std::uint8_t address, const CoarseFineBias& bias) = 0;
    virtual CoarseFineBias bias(std::uint8_t address) const = 0;

    /// Begins to deliver events. `shutdown(self)` is called when delivery ends by itself: the camera was unplugged, or
    /// its data transfers failed.
    virtual void start(void (*shutdown)(void* self), void* self) = 0;
    /// Ends delivery, also after the shutdown callback.
    virtual void stop() = 0;
    /// The polarity events of the next read, valid or not; none when the read has no such events or there was no read.
    /// With blocking data exchange it waits for one: up to 10 ms for a virtual camera, about a second for a real one.
    virtual std::vector<event::DvsEvent> get() = 0;

    /// A virtual camera that plays as fast as it is read asks how many batches still wait in the graph. Call it before
    /// start(); get() calls `waiting`. A real camera has a pace of its own and ignores it.
    virtual void setBacklogQuery(const std::function<std::size_t()>& /*waiting*/) {}
};

} // namespace davis::driver
