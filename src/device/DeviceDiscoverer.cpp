#include "device/DeviceDiscoverer.h"

namespace device {

DiscovererMap& getDiscoverers()
{
    static DiscovererMap discoverers;
    return discoverers;
}

} // namespace device
