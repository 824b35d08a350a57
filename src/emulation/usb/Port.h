#pragma once
// The kernel's side of one emulated device: usbfs in user space. Requests of libusb (URBs) queue here, behind file
// descriptors that poll as the kernel's do: writable when a finished request can be reaped, in error once the device is
// gone. Such a descriptor is the write end of a pipe with room for one byte: with the byte in it, it isn't writable;
// when the read end is closed, it is in error.

#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "emulation/usb/Device.h"
#include "util/Mutex.h"

struct usbdevfs_urb;

namespace emulation {

/// Threads: thread-safe; unplug() and destruction may not happen inside a call of the device.
/// A request that the device can answer at once is answered on the thread that submits it. The others are tried again
/// by the worker, which the constructor starts and the destructor joins; it sleeps until pollAfter() or a wake().
/// Neither of its mutexes is held while code of libusb runs.
class Port {
public:
    /// What a test makes go wrong at the kernel's side. What goes wrong on the wire, the device itself returns.
    /// `submit` sees every submission, with the port locked: it may record it, but may not call the port.
    struct Faults {
        int open = 0;                                       ///< errno of opening; EACCES: no permission
        int claim = 0;                                      ///< errno of claiming an interface; EBUSY: somebody has it
        std::string kernelDriver{};                         ///< name of a driver that holds interface 0 until detached
        std::function<int(std::uint8_t endpoint)> submit{}; ///< errno of a submission, 0: none
    };

    /// @throws std::invalid_argument when the device cannot be described, see descriptors()
    Port(std::shared_ptr<Device> device, int address);
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;
    ~Port();

    void setFaults(Faults newFaults);

    /// Ends pending requests with -ESHUTDOWN; later ones fail with ENODEV. A second call does nothing.
    void unplug();

    bool carries(const Device& other) const;

    // What libusb asks of the kernel: a result, or a negative errno.
    int open();
    int ioctl(int file, unsigned long request, void* argument);
    void close(int file);

    const int address; ///< on the bus, 1 to 127
    const std::vector<std::uint8_t> descriptorBytes;

private:
    struct File {
        int readEnd;           // -1 after an unplug
        bool writable = false; // the pipe's byte has been taken out
        std::deque<usbdevfs_urb*> finished;
    };
    struct Request {
        int file;
        usbdevfs_urb* urb;
    };

    int submit(int file, usbdevfs_urb* urb) VORNA_REQUIRES(mutex);
    int checkSubmission(int file, const usbdevfs_urb& urb) const VORNA_REQUIRES(mutex);
    int discard(const void* urb) VORNA_REQUIRES(mutex);
    std::vector<Request> takeOut(const std::function<bool(const Request&)>& which) VORNA_REQUIRES(mutex);
    int reap(int descriptor, File& file, void* argument) VORNA_REQUIRES(mutex);
    int claim(int file, unsigned interfaceNumber) VORNA_REQUIRES(mutex);
    int driverName(void* argument) const VORNA_REQUIRES(mutex);
    int detachDriver(const void* argument) VORNA_REQUIRES(mutex);

    void tryPending() VORNA_REQUIRES(mutex);
    void tryPendingOnce() VORNA_REQUIRES(mutex);
    int attempt(const usbdevfs_urb& urb) VORNA_REQUIRES(mutex);
    int ask(const usbdevfs_urb& urb, std::span<std::uint8_t> bytes) VORNA_REQUIRES(mutex);
    void finish(const Request& request, int result) VORNA_REQUIRES(mutex);
    void showWhetherWritable(int descriptor, File& file) VORNA_REQUIRES(mutex);

    void work();
    void wakeWorker();
    bool wokenMeanwhile();

    util::Mutex mutex; // held around every call of the device, so outer to the device's own
    const std::shared_ptr<Device> device;
    const std::vector<std::uint8_t> endpoints; // the device's; asked once
    std::map<int, File> files VORNA_GUARDED_BY(mutex);
    std::list<Request> requests VORNA_GUARDED_BY(mutex);    // in the order of submission
    std::map<unsigned, int> claims VORNA_GUARDED_BY(mutex); // interface number to file
    Faults faults VORNA_GUARDED_BY(mutex);
    bool plugged VORNA_GUARDED_BY(mutex) = true;

    util::Mutex workerMutex VORNA_ACQUIRED_AFTER(mutex); // innermost: a device wakes the worker from anywhere
    util::ConditionVariable workerWoken;
    bool stopping VORNA_GUARDED_BY(workerMutex) = false;
    bool woken VORNA_GUARDED_BY(workerMutex) = false;
    bool trying VORNA_GUARDED_BY(workerMutex) = false; // tryPending() runs and sees `woken` by itself
    std::thread worker;                                // last: it uses all of the above
};

} // namespace emulation
