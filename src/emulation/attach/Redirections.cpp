#include "emulation/attach/detail/Redirections.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

#include "emulation/usb/Bus.h"
#include "util/Mutex.h"

// libudev's types; only pointers to them are passed on
struct udev;
struct udev_device;
struct udev_enumerate;
struct udev_list_entry;

namespace emulation::detail {
namespace {

// ---- paths: /dev/bus/usb/250/007 and /sys/bus/usb/devices/250-7/<attribute>

constexpr std::string_view nodePrefix = "/dev/bus/usb/250/";
constexpr std::string_view sysPrefix = "/sys/bus/usb/devices/250-";
static_assert(Bus::number == 250);

struct Path {
    int address;
    std::string_view rest; // behind the number
};

std::optional<Path> parse(std::string_view path, std::string_view prefix)
{
    if (!path.starts_with(prefix))
        return std::nullopt;
    path.remove_prefix(prefix.size());
    int address = 0;
    const auto [end, error] = std::from_chars(path.data(), path.data() + path.size(), address);
    if (error != std::errc())
        return std::nullopt;
    path.remove_prefix(static_cast<std::size_t>(end - path.data()));
    return Path{address, path};
}

int fail(int code)
{
    errno = code;
    return -1;
}

// ---- files

// The read end of a pipe that holds `bytes`; they are far fewer than a pipe takes.
int readable(const void* bytes, std::size_t count)
{
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0)
        return -1;
    const ssize_t written = ::write(ends[1], bytes, count);
    ::close(ends[1]);
    if (written == static_cast<ssize_t>(count))
        return ends[0];
    ::close(ends[0]);
    return fail(EIO);
}

int openAttribute(const Port& port, std::string_view name)
{
    std::string text;
    if (name == "descriptors")
        return readable(port.descriptorBytes.data(), port.descriptorBytes.size());
    if (name == "busnum")
        text = std::to_string(Bus::number);
    else if (name == "devnum")
        text = std::to_string(port.address);
    else if (name == "speed")
        text = "480"; // megabits a second
    else if (name == "bConfigurationValue")
        text = "1";
    else
        return fail(ENOENT);
    text += '\n';
    return readable(text.data(), text.size());
}

int openNode(const std::shared_ptr<Port>& port)
{
    const int file = port->open();
    if (file < 0)
        return fail(-file);
    Bus::instance().remember(file, port);
    return file;
}

// Empty: not a path of ours.
std::optional<int> openEmulated(const char* path)
{
    if (const auto node = parse(path, nodePrefix); node && node->rest.empty()) {
        const auto port = Bus::instance().byAddress(node->address);
        return port ? openNode(port) : fail(ENOENT);
    }
    if (auto attribute = parse(path, sysPrefix); attribute && attribute->rest.starts_with('/')) {
        const auto port = Bus::instance().byAddress(attribute->address);
        return port ? openAttribute(*port, attribute->rest.substr(1)) : fail(ENOENT);
    }
    return std::nullopt;
}

extern "C" {

// All of these are called by C, so an exception (only lack of memory causes one) ends the process.

int vornaEmulationOpen(const char* path, int flags, ...) noexcept
{
    if (const auto file = openEmulated(path))
        return *file;
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) { // it shares a bit with O_DIRECTORY
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return ::open(path, flags, mode);
}

// What glibc's fortified headers make of an open without a mode.
int vornaEmulationOpen2(const char* path, int flags) noexcept { return vornaEmulationOpen(path, flags); }

int vornaEmulationIoctl(int file, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    const auto port = Bus::instance().byFile(file);
    if (!port)
        return ::ioctl(file, request, argument);
    const int result = port->ioctl(file, request, argument);
    return result < 0 ? fail(-result) : result;
}

int vornaEmulationClose(int file) noexcept
{
    // forgotten first: once closed, the number may at once be another file's
    const auto port = Bus::instance().forget(file);
    if (!port)
        return ::close(file);
    port->close(file);
    return 0;
}

} // extern "C"

// ---- libudev: after the last real device of a listing come ours

struct Udev {
    udev_list_entry* (*firstEntry)(udev_enumerate*);
    udev_list_entry* (*nextEntry)(udev_list_entry*);
    const char* (*entryName)(udev_list_entry*);
    udev_device* (*deviceFromSyspath)(udev*, const char*);
    const char* (*deviceNode)(udev_device*);
    const char* (*deviceSysname)(udev_device*);
    udev_device* (*unrefDevice)(udev_device*);
};

Udev real{}; // set before anything is redirected
std::atomic<bool> listed = false;

struct Entry {
    std::string syspath, sysname, node;
};

std::string syspathOf(int address) { return std::string(sysPrefix) + std::to_string(address); }

Entry entryFor(int address)
{
    std::array<char, 8> number{};
    std::snprintf(number.data(), number.size(), "%03d", address);
    const std::string syspath = syspathOf(address);
    return {syspath, syspath.substr(syspath.rfind('/') + 1), std::string(nodePrefix) + number.data()};
}

// The handles that we gave out in place of libudev's. libusb lists under a lock of its own, so one listing is enough.
struct Handles {
    util::Mutex mutex; // outer to the bus's
    std::vector<std::unique_ptr<Entry>> listing VORNA_GUARDED_BY(mutex);
    std::map<const void*, std::unique_ptr<Entry>> devices VORNA_GUARDED_BY(mutex);

    // The place of a list entry of ours; empty for libudev's.
    std::optional<std::size_t> placeInListing(const udev_list_entry* entry) const VORNA_REQUIRES(mutex)
    {
        for (std::size_t i = 0; i < listing.size(); ++i)
            if (static_cast<const void*>(listing[i].get()) == entry)
                return i;
        return std::nullopt;
    }
};

Handles& handles()
{
    static Handles* const instance = new Handles; // libusb's threads may call it until the process ends
    return *instance;
}

template <class T>
T* asHandle(Entry* entry)
{
    return reinterpret_cast<T*>(entry); // never dereferenced, only compared
}

udev_list_entry* startListing()
{
    Handles& own = handles();
    const util::Lock lock(own.mutex);
    own.listing.clear();
    for (const auto& port : Bus::instance().ports())
        own.listing.push_back(std::make_unique<Entry>(entryFor(port->address)));
    return own.listing.empty() ? nullptr : asHandle<udev_list_entry>(own.listing.front().get());
}

const Entry* emulatedDevice(const udev_device* device)
{
    Handles& own = handles();
    const util::Lock lock(own.mutex);
    const auto found = own.devices.find(device);
    return found == own.devices.end() ? nullptr : found->second.get();
}

extern "C" {

udev_list_entry* vornaEmulationFirstEntry(udev_enumerate* listing) noexcept
{
    listed = true;
    udev_list_entry* const entry = real.firstEntry(listing);
    return entry != nullptr ? entry : startListing();
}

udev_list_entry* vornaEmulationNextEntry(udev_list_entry* entry) noexcept
{
    {
        Handles& own = handles();
        const util::Lock lock(own.mutex);
        if (const auto place = own.placeInListing(entry))
            return *place + 1 < own.listing.size() ? asHandle<udev_list_entry>(own.listing[*place + 1].get()) : nullptr;
    }
    udev_list_entry* const next = real.nextEntry(entry);
    return next != nullptr ? next : startListing();
}

const char* vornaEmulationEntryName(udev_list_entry* entry) noexcept
{
    {
        Handles& own = handles();
        const util::Lock lock(own.mutex);
        if (const auto place = own.placeInListing(entry))
            return own.listing[*place]->syspath.c_str();
    }
    return real.entryName(entry);
}

udev_device* vornaEmulationDeviceFromSyspath(udev* context, const char* path) noexcept
{
    const auto parsed = parse(path, sysPrefix);
    if (!parsed || !parsed->rest.empty())
        return real.deviceFromSyspath(context, path);
    auto entry = std::make_unique<Entry>(entryFor(parsed->address));
    Entry* const address = entry.get();
    Handles& own = handles();
    const util::Lock lock(own.mutex);
    own.devices.emplace(address, std::move(entry));
    return asHandle<udev_device>(address);
}

const char* vornaEmulationDeviceNode(udev_device* device) noexcept
{
    const Entry* const entry = emulatedDevice(device);
    return entry != nullptr ? entry->node.c_str() : real.deviceNode(device);
}

const char* vornaEmulationDeviceSysname(udev_device* device) noexcept
{
    const Entry* const entry = emulatedDevice(device);
    return entry != nullptr ? entry->sysname.c_str() : real.deviceSysname(device);
}

// libusb takes no second reference to a device, so one release frees it.
udev_device* vornaEmulationUnrefDevice(udev_device* device) noexcept
{
    {
        Handles& own = handles();
        const util::Lock lock(own.mutex);
        if (own.devices.erase(device) != 0)
            return nullptr;
    }
    return real.unrefDevice(device);
}

} // extern "C"

template <class Function>
void lookUp(void* libudev, const char* name, Function*& function)
{
    // the global scope first: an interposed libudev counts
    void* found = ::dlsym(RTLD_DEFAULT, name);
    if (found == nullptr && libudev != nullptr)
        found = ::dlsym(libudev, name);
    if (found == nullptr)
        throw std::runtime_error(std::string("no emulated USB devices here: libudev.so.1 or its function ") + name +
                                 " is missing; install libudev1");
    function = reinterpret_cast<Function*>(found);
}

void lookUpLibudev()
{
    void* const libudev = ::dlopen("libudev.so.1", RTLD_NOW | RTLD_NODELETE);
    lookUp(libudev, "udev_enumerate_get_list_entry", real.firstEntry);
    lookUp(libudev, "udev_list_entry_get_next", real.nextEntry);
    lookUp(libudev, "udev_list_entry_get_name", real.entryName);
    lookUp(libudev, "udev_device_new_from_syspath", real.deviceFromSyspath);
    lookUp(libudev, "udev_device_get_devnode", real.deviceNode);
    lookUp(libudev, "udev_device_get_sysname", real.deviceSysname);
    lookUp(libudev, "udev_device_unref", real.unrefDevice);
}

template <class Function>
void* address(Function* function)
{
    return reinterpret_cast<void*>(function);
}

} // namespace

std::span<const Redirection> redirections()
{
    lookUpLibudev();
    static const std::array table{
        Redirection{"open", address(vornaEmulationOpen), "open"},
        Redirection{"open64", address(vornaEmulationOpen), "open"},
        Redirection{"__open_2", address(vornaEmulationOpen2), "open"},
        Redirection{"__open64_2", address(vornaEmulationOpen2), "open"},
        Redirection{"ioctl", address(vornaEmulationIoctl), "ioctl"},
        Redirection{"close", address(vornaEmulationClose), "close"},
        Redirection{"udev_enumerate_get_list_entry", address(vornaEmulationFirstEntry), "first"},
        Redirection{"udev_list_entry_get_next", address(vornaEmulationNextEntry), "next"},
        Redirection{"udev_list_entry_get_name", address(vornaEmulationEntryName), "name"},
        Redirection{"udev_device_new_from_syspath", address(vornaEmulationDeviceFromSyspath), "device"},
        Redirection{"udev_device_get_devnode", address(vornaEmulationDeviceNode), "node"},
        Redirection{"udev_device_get_sysname", address(vornaEmulationDeviceSysname), "sysname"},
        Redirection{"udev_device_unref", address(vornaEmulationUnrefDevice), "unref"},
    };
    return table;
}

bool haveBeenCalled() { return listed; }

} // namespace emulation::detail
