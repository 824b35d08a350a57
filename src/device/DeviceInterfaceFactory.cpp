#include "device/DeviceInterfaceFactory.h"

#include <stdexcept>
#include <string_view>
#include <utility>

#include "device/Log.h"

namespace device {
namespace {

const Log& logger()
{
    static const Log log("device::DeviceInterfaceFactory");
    return log;
}

template <class Builder>
void add(std::map<std::string, Builder>& builders, std::string_view function, const std::string& name, Builder builder)
{
    logger().debug(std::string(function) + " registering for " + name);
    builders[name] = std::move(builder);
}

template <class Builder>
const Builder& find(const std::map<std::string, Builder>& builders, std::string_view function, std::string_view role,
                    const std::string& name)
{
    const auto found = builders.find(name);
    if (found == builders.end()) {
        const std::string text = std::string(role) + " builder missing for: " + name;
        logger().fatal(std::string(function) + " " + text);
        throw std::runtime_error(text);
    }
    logger().debug(std::string(function) + " retrieve for " + name);
    return found->second;
}

} // namespace

DeviceInterfaceFactory& DeviceInterfaceFactory::getInstance()
{
    static DeviceInterfaceFactory factory;
    return factory;
}

void DeviceInterfaceFactory::registerAPIBuilder(const std::string& name, APIBuilder builder)
{
    add(apiBuilders, "registerAPIBuilder", name, std::move(builder));
}

void DeviceInterfaceFactory::registerModelBuilder(const std::string& name, ModelBuilder builder)
{
    add(modelBuilders, "registerModelBuilder", name, std::move(builder));
}

void DeviceInterfaceFactory::registerBoardBuilder(const std::string& name, BoardBuilder builder)
{
    add(boardBuilders, "registerBoardBuilder", name, std::move(builder));
}

std::unique_ptr<DeviceAPI> DeviceInterfaceFactory::getDeviceAPI(const DeviceInfo& info) const
{
    return find(apiBuilders, "getDeviceAPI", "API", info.device_type_name)(info);
}

std::unique_ptr<DeviceModel> DeviceInterfaceFactory::getDeviceModel(std::unique_ptr<DeviceAPI> api) const
{
    if (!api)
        throw std::invalid_argument("getDeviceModel: a model needs an API");
    const auto& build = find(modelBuilders, "getDeviceModel", "Model", api->getDeviceTypeName());
    return build(std::move(api));
}

std::unique_ptr<Board> DeviceInterfaceFactory::getBoard(const DeviceInfo& info) const
{
    return find(boardBuilders, "getBoard", "Board", info.device_type_name)(info);
}

} // namespace device
