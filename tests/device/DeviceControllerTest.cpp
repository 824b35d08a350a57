#include "device/DeviceController.h"

#include <functional>
#include <set>
#include <sstream>
#include <utility>

#include <gmock/gmock.h>

#include "../Golden.h"
#include "LogCapture.h"
#include "device/DeviceInterfaceFactory.h"
#include "device/Drivers.h"
#include "trovi/Dispatcher.h"
#include "trovi/Store.h"

namespace {

using namespace device;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;

using Texts = std::vector<std::string>;

// Everything that the drivers below did, in order: "API 1 built", "API 1 closed".
Texts events;
int built = 0;

struct Traced {
    explicit Traced(const char* what) : name(std::string(what) + ' ' + std::to_string(++built))
    {
        events.push_back(name + " built");
    }
    ~Traced() { events.push_back(name + " closed"); }
    std::string name;
};

struct Api : DeviceAPI {
    explicit Api(const DeviceInfo& info) : type(info.device_type_name) {}
    std::string getDeviceTypeName() const override { return type; }
    Traced traced{"API"};
    std::string type;
};

struct Model : DeviceModel {
    explicit Model(std::unique_ptr<DeviceAPI> owned) : api(std::move(owned)) {}
    std::unique_ptr<DeviceAPI> releaseDeviceAPI() override { return std::move(api); }
    std::unique_ptr<DeviceAPI> api;
    Traced traced{"model"};
};

struct TracedBoard : Board {
    Traced traced{"board"};
};

struct Controller : DeviceController {
    using DeviceController::DeviceController;
    using DeviceController::opened;
};

struct Discoverer : DeviceDiscovererInterface {
    explicit Discoverer(std::vector<DeviceInfo> devices) : found(std::move(devices)) {}
    std::vector<DeviceInfo> getDevices() override { return found; }
    std::vector<DeviceInfo> found;
};

class DeviceControllerTest : public testing::Test {
protected:
    DeviceControllerTest()
    {
        auto& factory = DeviceInterfaceFactory::getInstance();
        for (const char* type : {"full", "other"}) {
            factory.registerAPIBuilder(type, [](const DeviceInfo& info) { return std::make_unique<Api>(info); });
            factory.registerModelBuilder(type, [](auto api) { return std::make_unique<Model>(std::move(api)); });
            factory.registerBoardBuilder(type, [](const DeviceInfo&) { return std::make_unique<TracedBoard>(); });
        }
        factory.registerAPIBuilder("bare", [](const DeviceInfo& info) { return std::make_unique<Api>(info); });
        events.clear();
        built = 0;
    }
    ~DeviceControllerTest() override { getDiscoverers().clear(); }

    std::set<std::string> heldTypes() const
    {
        std::set<std::string> types;
        for (const auto& element : store.report())
            types.insert(element.name + ": " + element.type);
        return types;
    }

    trovi::MessageChannel channel;
    trovi::Store store{channel, 7};
    const DeviceInfo info{"S", 1, 2, 0, "full"};
};

enum class State { closed, api, model, board };

trovi::StoreRef open(DeviceController& controller, State state, const DeviceInfo& info)
{
    if (state == State::closed)
        return controller.closeDevice(info), trovi::StoreRef::invalid();
    return state == State::api     ? controller.openDeviceAPI(info)
           : state == State::model ? controller.openDeviceModel(info)
                                   : controller.openBoard(info);
}

TEST_F(DeviceControllerTest, EveryRoleIsReachedFromEveryOther)
{
    const char* const names[] = {"closed", "API", "model", "board"};
    const char* const types[] = {"", "device::DeviceAPI", "device::DeviceModel", "device::Board"};
    std::ostringstream text;
    for (int from = 0; from < 4; ++from)
        for (int to = 0; to < 4; ++to) {
            text << "from " << names[from] << " to " << names[to] << '\n';
            Controller controller(store);
            built = 0;
            const trovi::StoreRef before = open(controller, static_cast<State>(from), info);
            events.clear();
            LogCapture log;
            const trovi::StoreRef after = open(controller, static_cast<State>(to), info);
            for (const auto& line : log.lines())
                if (line.category == "device::DeviceController")
                    text << "    " << line.level << ' ' << line.text << '\n';
            for (const auto& event : events)
                text << "    " << event << '\n';
            EXPECT_EQ(before == after, from == to);
            if (to == 0) {
                EXPECT_THAT(controller.getOpenedDevices(), IsEmpty());
                EXPECT_THAT(heldTypes(), IsEmpty());
            } else {
                const auto role = static_cast<DriverReferenceType>(to - 1);
                EXPECT_THAT(controller.getOpenedDevices(), ElementsAre(OpenedDevice(info, after, role)));
                EXPECT_THAT(heldTypes(), ElementsAre(std::string("full: ") + types[to]));
            }
        }
    EXPECT_EQ(store.size(), 0U) << "a controller closes what it opened";
    EXPECT_GOLDEN("device_roles.txt", text.str());
}

TEST_F(DeviceControllerTest, ManyDevicesAreEachFoundAgain)
{
    Controller controller(store);
    std::vector<DeviceInfo> infos;
    std::vector<trovi::StoreRef> refs;
    auto& factory = DeviceInterfaceFactory::getInstance();
    for (int i = 0; i < 40; ++i) {
        const std::string type = "many " + std::to_string(i);
        factory.registerAPIBuilder(type, [](const DeviceInfo& given) { return std::make_unique<Api>(given); });
        infos.emplace_back("S", i, 0, 0, type);
        refs.push_back(controller.openDeviceAPI(infos.back()));
    }
    for (std::size_t i = 0; i < infos.size(); ++i) {
        EXPECT_EQ(controller.openDeviceAPI(infos[i]), refs[i]);
        EXPECT_EQ(controller.openDeviceAPI(DeviceInfo(infos[i])), refs[i]) << "wherever the info lies";
    }
    EXPECT_EQ(built, 40);
    for (std::size_t i = 0; i < infos.size(); i += 2)
        controller.closeDevice(DeviceInfo(infos[i]));
    EXPECT_EQ(controller.getOpenedDevices().size(), 20U);
    EXPECT_EQ(store.size(), 20U);
    // in map order, which is the order of the keys in memory
    EXPECT_TRUE(std::is_sorted(controller.opened.begin(), controller.opened.end(), [](const auto& a, const auto& b) {
        return std::less<const void*>()(&a.first, &b.first);
    }));
}

TEST_F(DeviceControllerTest, WhatCannotBeBuiltLeavesTheMapAsItWas)
{
    Controller controller(store);
    const DeviceInfo bare("", 1, 2, 0, "bare");
    const auto expectMissing = [&](State state, const DeviceInfo& device, const char* text) {
        EXPECT_THAT([&] { open(controller, state, device); }, ThrowsMessage<std::runtime_error>(text));
    };
    expectMissing(State::api, {"", 1, 2, 0, "usb"}, "API builder missing for: usb");
    expectMissing(State::board, bare, "Board builder missing for: bare");
    expectMissing(State::model, bare, "Model builder missing for: bare");
    EXPECT_THAT(events, ElementsAre("API 1 built", "API 1 closed"));
    EXPECT_THAT(controller.getOpenedDevices(), IsEmpty());
    EXPECT_EQ(store.size(), 0U);

    // an API that was open is lost in the attempt, and its reference stays, dead
    const auto ref = controller.openDeviceAPI(bare);
    expectMissing(State::model, bare, "Model builder missing for: bare");
    EXPECT_EQ(events.back(), "API 2 closed");
    EXPECT_THAT(controller.getOpenedDevices(), ElementsAre(OpenedDevice(bare, ref, DriverReferenceType::DeviceAPI)));
    EXPECT_EQ(controller.openDeviceAPI(bare), ref);
    EXPECT_THROW(controller.openDeviceModel(bare), std::runtime_error);
    controller.closeDevice(bare);
    EXPECT_NE(controller.openDeviceAPI(bare), ref);

    // two devices of one type want one name in the store
    controller.openDeviceAPI(info);
    expectMissing(State::api, {"S", 1, 3, 0, "full"}, "Name: full is already used by other element in the store!");
    controller.openDeviceAPI({"S", 1, 2, 0, "other"});
    EXPECT_THAT(heldTypes(),
                ElementsAre("bare: device::DeviceAPI", "full: device::DeviceAPI", "other: device::DeviceAPI"));
}

TEST_F(DeviceControllerTest, LivesInTheStoreThatItFills)
{
    auto owned = std::make_unique<trovi::Store>(channel, 1);
    auto controller = std::make_unique<DeviceController>(*owned);
    DeviceController& inStore = *controller;
    owned->insert("DeviceController", std::move(controller));
    inStore.openDeviceAPI(info);
    inStore.openDeviceModel({"S", 1, 2, 0, "other"});
    owned.reset(); // destroys the controller first, which erases its devices from the dying store
    EXPECT_THAT(events, testing::UnorderedElementsAre("API 1 built", "API 1 closed", "API 2 built", "model 3 built",
                                                      "model 3 closed", "API 2 closed"));
}

TEST_F(DeviceControllerTest, AnswersCallsFromOtherNodes)
{
    auto controller = std::make_unique<DeviceController>(store);
    const trovi::StoreRef ref = store.insert("DeviceController", std::move(controller));
    const auto call = [&](std::uint64_t function, trovi::Bytes arguments) {
        const trovi::Bytes sender = trovi::serializeToBuffer(std::uint64_t{42}, "the uuid");
        arguments.insert(arguments.end(), sender.begin(), sender.end());
        store.receiveMsg({0, ref, trovi::StoreCommand::call, function}, std::move(arguments));
        trovi::messages::Message answer;
        EXPECT_TRUE(channel.try_dequeue(answer));
        return std::get<trovi::messages::Response>(answer).buffer;
    };
    const trovi::StoreRef model{7, 1};
    EXPECT_EQ(call(3, trovi::serializeToBuffer(info)), trovi::serializeToBuffer("the uuid", model));
    EXPECT_EQ(call(1, {}), trovi::serializeToBuffer(
                               "the uuid", std::vector{OpenedDevice(info, model, DriverReferenceType::DeviceModel)}));
    EXPECT_EQ(call(5, trovi::serializeToBuffer(info)), trovi::serializeToBuffer("the uuid"));
    EXPECT_EQ(store.size(), 1U);
}

TEST_F(DeviceControllerTest, ListsWhatAllDiscoverersFind)
{
    Controller controller(store);
    EXPECT_THAT(controller.getUnopenedDevices(), IsEmpty());

    const DeviceInfo other("T", 1, 3, 0, "other");
    LogCapture log;
    DeviceController::registerDiscoverer("b", std::make_shared<Discoverer>(std::vector{info}));
    DeviceController::registerDiscoverer("a", std::make_shared<Discoverer>(std::vector{other, info}));
    DeviceController::registerDiscoverer("b", std::make_shared<Discoverer>(std::vector{other}));
    EXPECT_THAT(controller.getUnopenedDevices(), ElementsAre(other, info, info));
    EXPECT_THAT(log.texts(), ElementsAre("registerDiscoverer registering for b", "registerDiscoverer registering for a",
                                         "getUnopenedDevices"))
        << "the first of a name stays, and the second isn't mentioned";
    controller.openDeviceAPI(info);
    EXPECT_THAT(controller.getUnopenedDevices(), ElementsAre(other, info, info)) << "open ones too";
}

using DeviceControllerDeathTest = DeviceControllerTest;

TEST_F(DeviceControllerDeathTest, AnUnknownRoleEndsTheProcess)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    Controller controller(store);
    controller.openDeviceAPI(info);
    controller.opened.begin()->second.reference_type = static_cast<DriverReferenceType>(3);
    for (const State state : {State::api, State::model, State::board})
        EXPECT_EXIT(open(controller, state, info), testing::ExitedWithCode(255), "");
}

} // namespace
