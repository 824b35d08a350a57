#include <array>
#include <functional>
#include <sstream>
#include <utility>

#include <gmock/gmock.h>

#include "../Golden.h"
#include "LogCapture.h"
#include "device/DeviceDiscoverer.h"
#include "device/DeviceInterfaceFactory.h"
#include "device/Drivers.h"
#include "device/OpenedDevice.h"

namespace {

using namespace device;
using testing::IsEmpty;

TEST(DeviceInfo, EqualityLooksAtEveryField)
{
    const DeviceInfo info("S", 1, 2, 3, "type");
    EXPECT_EQ(info, DeviceInfo(info));
    const DeviceInfo different[] = {
        {"T", 1, 2, 3, "type"}, {"S", 0, 2, 3, "type"}, {"S", 1, 0, 3, "type"},
        {"S", 1, 2, 0, "type"}, {"S", 1, 2, 3, "kind"}, {},
    };
    for (const DeviceInfo& other : different)
        EXPECT_NE(info, other);
}

TEST(DeviceInfo, LessThanOrdersDifferentInfosByAddressAlone)
{
    const std::array infos{DeviceInfo("z", 9, 9, 9, "z"), DeviceInfo("a", 1, 1, 1, "a"), DeviceInfo("z", 9, 9, 9, "z")};
    EXPECT_TRUE(infos[0] < infos[1]);
    EXPECT_FALSE(infos[1] < infos[0]);
    EXPECT_TRUE(infos[1] < infos[2]);
    EXPECT_FALSE(infos[0] < infos[2]) << "equal infos";
    EXPECT_FALSE(infos[2] < infos[0]) << "equal infos";
    EXPECT_EQ(OpenedDevice(), OpenedDevice(DeviceInfo(), {0, 0}, DriverReferenceType::DeviceAPI));
}

struct Api : DeviceAPI {
    explicit Api(DeviceInfo info) : built(std::move(info)) {}
    DeviceInfo built;
};

struct NamedApi : Api {
    using Api::Api;
    std::string getDeviceTypeName() const override { return "named"; }
};

struct Model : DeviceModel {
    explicit Model(std::unique_ptr<DeviceAPI> owned) : api(std::move(owned)) {}
    std::unique_ptr<DeviceAPI> releaseDeviceAPI() override { return std::move(api); }
    std::unique_ptr<DeviceAPI> api;
};

// A factory of the test's own: the process has but one, which other tests fill.
struct Factory : DeviceInterfaceFactory {
    Factory() = default;
};

TEST(DeviceInterfaceFactory, BuildsByNameAndSaysWhatIsMissing)
{
    Factory factory;
    LogCapture log;
    std::ostringstream text;
    const DeviceInfo x("S", 0, 0, 0, "x");
    int used = 0;
    const auto tryAll = [&] {
        for (const auto& build : std::initializer_list<std::function<void()>>{
                 [&] { factory.getDeviceAPI(x); }, [&] { factory.getBoard(x); },
                 [&] { factory.getDeviceModel(std::make_unique<Api>(x)); },
                 [&] { factory.getDeviceModel(std::make_unique<NamedApi>(x)); }})
            try {
                build();
            } catch (const std::runtime_error& error) {
                text << "raised: " << error.what() << '\n';
            }
        for (const auto& line : log.lines())
            text << line.category << ' ' << line.level << ' ' << line.text << '\n';
        log.clear();
    };
    tryAll();
    for (const int number : {1, 2}) { // a later builder replaces an earlier one
        factory.registerAPIBuilder("x", [&used, number](const DeviceInfo& info) {
            used = number;
            return std::make_unique<Api>(info);
        });
        factory.registerModelBuilder("generic device",
                                     [](auto api) { return std::make_unique<Model>(std::move(api)); });
        factory.registerBoardBuilder("x", [](const DeviceInfo&) { return std::make_unique<Board>(); });
    }
    tryAll();
    EXPECT_EQ(used, 2);
    EXPECT_GOLDEN("device_factory.txt", text.str());
    auto api = factory.getDeviceAPI(x);
    DeviceAPI* const hardware = api.get();
    EXPECT_EQ(factory.getDeviceModel(std::move(api))->releaseDeviceAPI().get(), hardware);
    EXPECT_NE(factory.getBoard(x), nullptr);
    EXPECT_THROW(factory.getDeviceModel(nullptr), std::invalid_argument);
}

TEST(APIBuilderRegistrar, BuildsItsClassFromACopyOfTheInfo)
{
    const APIBuilderRegistrar<NamedApi> registrar("registrar test");
    const DeviceInfo info("S", 1, 2, 3, "registrar test");
    const auto api = DeviceInterfaceFactory::getInstance().getDeviceAPI(info);
    EXPECT_EQ(api->getDeviceTypeName(), "named");
    EXPECT_EQ(dynamic_cast<const NamedApi&>(*api).built, info);
}

TEST(DeviceDiscoverer, TheRegistryStartsEmpty) { EXPECT_THAT(getDiscoverers(), IsEmpty()); }

} // namespace
