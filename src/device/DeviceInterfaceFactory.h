#pragma once
// Builds drivers by the name of their device's type. A driver registers itself from its own source file:
//
//   namespace { const device::APIBuilderRegistrar<OmbrelDevBoard> _registrar("ombrel"); }
//
// The linker drops such an object from a static library that nothing else calls: link that library whole.

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "device/DeviceInfo.h"
#include "device/Drivers.h"

namespace device {

/// Threads: registrars fill it while the library loads; read afterwards. No lock.
class DeviceInterfaceFactory {
public:
    using APIBuilder = std::function<std::unique_ptr<DeviceAPI>(const DeviceInfo&)>;
    using ModelBuilder = std::function<std::unique_ptr<DeviceModel>(std::unique_ptr<DeviceAPI>)>;
    using BoardBuilder = std::function<std::unique_ptr<Board>(const DeviceInfo&)>;

    /// The one factory of the process, made on first use, so registrars may run in any order.
    static DeviceInterfaceFactory& getInstance();

    virtual ~DeviceInterfaceFactory() = default;
    DeviceInterfaceFactory(const DeviceInterfaceFactory&) = delete;
    DeviceInterfaceFactory& operator=(const DeviceInterfaceFactory&) = delete;

    /// A later registration replaces an earlier one of the same name.
    void registerAPIBuilder(const std::string& name, APIBuilder builder);
    void registerModelBuilder(const std::string& name, ModelBuilder builder);
    void registerBoardBuilder(const std::string& name, BoardBuilder builder);

    /// Builds by `info.device_type_name`.
    /// @throws std::runtime_error "API builder missing for: " and the name; whatever the driver's constructor throws
    std::unique_ptr<DeviceAPI> getDeviceAPI(const DeviceInfo& info) const;

    /// Builds by `api`'s own getDeviceTypeName(). `api` is consumed, and destroyed when this throws.
    /// @param api  not null
    /// @throws std::runtime_error "Model builder missing for: " and the name; std::invalid_argument for a null `api`
    std::unique_ptr<DeviceModel> getDeviceModel(std::unique_ptr<DeviceAPI> api) const;

    /// Builds by `info.device_type_name`.
    /// @throws std::runtime_error "Board builder missing for: " and the name; whatever the driver's constructor throws
    std::unique_ptr<Board> getBoard(const DeviceInfo& info) const;

protected:
    DeviceInterfaceFactory() = default;

private:
    std::map<std::string, APIBuilder> apiBuilders;
    std::map<std::string, ModelBuilder> modelBuilders;
    std::map<std::string, BoardBuilder> boardBuilders;
};

/// Registers, by its construction, that devices of type `name` are driven by T, which is built from a DeviceInfo.
template <class T>
class APIBuilderRegistrar {
public:
    explicit APIBuilderRegistrar(const std::string& name)
    {
        DeviceInterfaceFactory::getInstance().registerAPIBuilder(
            name, [](DeviceInfo info) -> std::unique_ptr<DeviceAPI> { return std::make_unique<T>(std::move(info)); });
    }
};

} // namespace device
