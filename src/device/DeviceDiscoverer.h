#pragma once
// Sources of device descriptions, by name. The registry starts empty.

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "device/DeviceInfo.h"

namespace device {

/// Finds devices of one kind.
class DeviceDiscovererInterface {
public:
    virtual ~DeviceDiscovererInterface() = default;

    /// The devices that are there now, open or not.
    virtual std::vector<DeviceInfo> getDevices() = 0;
};

using DiscovererMap = std::map<std::string, std::shared_ptr<DeviceDiscovererInterface>>;

/// The process-wide registry, made on first use; it lives until the process exits.
/// Threads: filled while the library loads, or before a controller runs; read afterwards. No lock.
DiscovererMap& getDiscoverers();

} // namespace device
