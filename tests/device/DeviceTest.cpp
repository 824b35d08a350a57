#include <array>
#include <functional>
#include <utility>

#include <gmock/gmock.h>

#include "LogCapture.h"
#include "device/DeviceDiscoverer.h"
#include "device/DeviceInfo.h"
#include "device/DeviceInterfaceFactory.h"
#include "device/Drivers.h"

namespace {

using namespace device;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

constexpr const char* factoryCategory = "device::DeviceInterfaceFactory";

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
}

TEST(OpenedDevice, AddressesNothingByDefault)
{
    const OpenedDevice opened;
    EXPECT_EQ(opened, OpenedDevice(DeviceInfo(), {0, 0}, DriverReferenceType::DeviceAPI));
    EXPECT_NE(opened, OpenedDevice(DeviceInfo(), {0, 0}, DriverReferenceType::Board));
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

TEST(DeviceInterfaceFactory, SaysAndLogsWhichBuilderIsMissing)
{
    Factory factory;
    const DeviceInfo info("", 0, 0, 0, "usb");
    const struct {
        std::function<void()> build;
        const char* text;
        const char* logged;
    } rows[] = {
        {[&] { factory.getDeviceAPI(info); }, "API builder missing for: usb",
         "getDeviceAPI API builder missing for: usb"},
        {[&] { factory.getBoard(info); }, "Board builder missing for: usb", "getBoard Board builder missing for: usb"},
        {[&] { factory.getDeviceModel(std::make_unique<Api>(info)); }, "Model builder missing for: generic device",
         "getDeviceModel Model builder missing for: generic device"},
        {[&] { factory.getDeviceModel(std::make_unique<NamedApi>(info)); }, "Model builder missing for: named",
         "getDeviceModel Model builder missing for: named"},
    };
    for (const auto& row : rows) {
        LogCapture log;
        EXPECT_THAT(row.build, ThrowsMessage<std::runtime_error>(row.text));
        EXPECT_THAT(log.lines(), ElementsAre(LogCapture::Line{factoryCategory, "FATAL", row.logged}));
    }
    EXPECT_THROW(factory.getDeviceModel(nullptr), std::invalid_argument);
}

TEST(DeviceInterfaceFactory, ALaterBuilderReplacesAnEarlierOne)
{
    LogCapture log;
    Factory factory;
    int used = 0;
    for (const int number : {1, 2}) {
        factory.registerAPIBuilder("x", [&used, number](const DeviceInfo& info) {
            used = number;
            return std::make_unique<Api>(info);
        });
        factory.registerModelBuilder("generic device",
                                     [](auto api) { return std::make_unique<Model>(std::move(api)); });
        factory.registerBoardBuilder("x", [](const DeviceInfo&) { return std::make_unique<Board>(); });
    }
    auto api = factory.getDeviceAPI(DeviceInfo("S", 0, 0, 0, "x"));
    EXPECT_EQ(used, 2);
    DeviceAPI* const hardware = api.get();
    EXPECT_EQ(factory.getDeviceModel(std::move(api))->releaseDeviceAPI().get(), hardware);
    EXPECT_NE(factory.getBoard(DeviceInfo("S", 0, 0, 0, "x")), nullptr);
    EXPECT_THAT(log.texts(),
                ElementsAre("registerAPIBuilder registering for x",
                            "registerModelBuilder registering for generic device",
                            "registerBoardBuilder registering for x", "registerAPIBuilder registering for x",
                            "registerModelBuilder registering for generic device",
                            "registerBoardBuilder registering for x", "getDeviceAPI retrieve for x",
                            "getDeviceModel retrieve for generic device", "getBoard retrieve for x"));
    for (const auto& line : log.lines()) {
        EXPECT_EQ(line.category, factoryCategory);
        EXPECT_EQ(line.level, "DEBUG");
    }
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
