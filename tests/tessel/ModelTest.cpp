// Models over a device interface that tells what they do, and over a chip in memory.

#include <any>
#include <atomic>
#include <sstream>

#include <gmock/gmock.h>

#include "../graph/NodeTesting.h"
#include "../trovi/Network.h"
#include "FakeDevice.h"

namespace {

using chips::FakeDevice;
using chips::Ravik;
using chips::Rig;
using chips::Tessel;
using node_testing::BatchSink;
using node_testing::errorOf;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using testing::SizeIs;

template <class Family>
struct ModelTest : testing::Test {
    using Model = typename Family::Model;
    using In = typename Family::InputEvent;
    using Out = typename Family::OutputEvent;
    using Spike = typename Family::Spike;

    static std::vector<In> spikesIn(std::size_t count, std::uint8_t layer = 1)
    {
        return std::vector<In>(count, Spike{layer, 2, 3, 4, 5});
    }
    static std::vector<Out> spikesOut(std::size_t count) { return std::vector<Out>(count, Spike{6, 7, 8, 9, 10}); }

    static constexpr const char* released = "This model's device interface has been released.";
};

using Families = testing::Types<Tessel, Ravik>;
TYPED_TEST_SUITE(ModelTest, Families);

TYPED_TEST(ModelTest, WritesAValidConfigurationAtOnce)
{
    Rig<TypeParam> rig;
    typename TypeParam::Configuration configuration;
    configuration.cnn_layers[8].threshold_low = -3;
    rig.model->applyConfiguration(configuration);
    ASSERT_THAT(rig.notes->writes, SizeIs(1));
    EXPECT_EQ(rig.notes->writes[0], TypeParam::translate(configuration));
    rig.model->applyConfiguration(configuration);
    EXPECT_THAT(rig.notes->writesUntilNow(), SizeIs(2)) << "the same again is sent again";
}

TYPED_TEST(ModelTest, RefusesAnInvalidConfigurationWithAllThatIsWrong)
{
    Rig<TypeParam> rig;
    typename TypeParam::Configuration configuration;
    configuration.cnn_layers[2].dimensions.kernel_size = 77;
    configuration.dvs_layer.pooling = {3, 5};
    std::ostringstream findings;
    ASSERT_FALSE(validate(configuration, findings));
    EXPECT_EQ(errorOf([&] { rig.model->applyConfiguration(configuration); }), findings.str());
    EXPECT_THAT(rig.notes->writesUntilNow(), IsEmpty());
}

TYPED_TEST(ModelTest, CarriesBatchesFromItsSinkToTheDeviceWithoutCopyingThem)
{
    Rig<TypeParam> rig;
    graph::nodes::BasicSourceNode<typename TypeParam::InputEvent> source;
    ASSERT_TRUE(source.addDestination(rig.model->getSinkNode().getInput()));
    auto batch = this->spikesIn(1000);
    const auto* const memory = batch.data();
    source.write(batch);
    source.write(this->spikesIn(3, 2));
    source.write(std::move(batch));
    ASSERT_TRUE(rig.notes->waitForWrites(3));
    EXPECT_THAT(rig.notes->writesUntilNow(),
                ElementsAre(this->spikesIn(1000), this->spikesIn(3, 2), this->spikesIn(1000)));
    EXPECT_EQ(rig.notes->memory[2], memory);
}

TYPED_TEST(ModelTest, CarriesWhatItReadsToAllDestinationsWithoutCopyingIt)
{
    Rig<TypeParam> rig;
    BatchSink<typename TypeParam::OutputEvent> left, right;
    ASSERT_TRUE(rig.model->getSourceNode().addDestination(left.getInput()));
    ASSERT_TRUE(rig.model->getSourceNode().addDestination(right.getInput()));
    auto said = this->spikesOut(1000);
    const auto* const memory = said.data();
    rig.notes->say(std::move(said));
    rig.notes->say(this->spikesOut(1));
    ASSERT_TRUE(rig.notes->waitForTurns(4));
    const auto batches = left.batches();
    EXPECT_EQ(batches, right.batches()) << "both own the same vectors";
    ASSERT_THAT(batches, SizeIs(2)) << "empty reads send nothing";
    EXPECT_EQ(batches[0]->data(), memory);
    EXPECT_EQ(*batches[1], this->spikesOut(1));
}

TYPED_TEST(ModelTest, ForgetsADeadDestinationAtTheNextEventsAndNotBefore)
{
    Rig<TypeParam> rig;
    auto& source = rig.model->getSourceNode();
    const auto inputThatDies = [&] {
        const BatchSink<typename TypeParam::OutputEvent> sink;
        EXPECT_TRUE(source.addDestination(sink.getInput()));
        return *sink.getInputChannel();
    };
    std::any input = inputThatDies();
    ASSERT_TRUE(rig.notes->waitForTurns(3));
    EXPECT_TRUE(source.removeDestination(&input)) << "nothing was read: it is still there";

    input = inputThatDies();
    rig.notes->say(this->spikesOut(1));
    ASSERT_TRUE(rig.notes->waitForTurns(3));
    EXPECT_FALSE(source.removeDestination(&input));
}

TYPED_TEST(ModelTest, HandsItsDeviceOutAndThenSleeps)
{
    Rig<TypeParam> rig;
    ASSERT_TRUE(rig.notes->waitForTurns(1));
    const auto device = rig.model->releaseDeviceAPI();
    EXPECT_EQ(device->getDeviceTypeName(), "generic device");
    const auto turns = rig.notes->turns;
    graph::nodes::BasicSourceNode<typename TypeParam::InputEvent> source;
    ASSERT_TRUE(source.addDestination(rig.model->getSinkNode().getInput()));
    source.write(this->spikesIn(1));

    EXPECT_EQ(rig.model->releaseDeviceAPI(), nullptr);
    EXPECT_EQ(errorOf([&] { rig.model->read(); }), this->released);
    EXPECT_EQ(errorOf([&] { rig.model->write({}); }), this->released);
    EXPECT_EQ(errorOf([&] { rig.model->applyConfiguration({}); }), this->released);
    rig.model.reset();
    EXPECT_EQ(rig.notes->turns, turns);
    EXPECT_THAT(rig.notes->writesUntilNow(), IsEmpty());
}

TYPED_TEST(ModelTest, NeedsADevice)
{
    EXPECT_EQ(errorOf<std::invalid_argument>([] { typename TypeParam::Model model(nullptr); }),
              "A model needs a device interface.");
    EXPECT_EQ(errorOf<std::invalid_argument>([] { typename TypeParam::MemoryDevice device(nullptr); }),
              "A device interface in memory needs a chip.");
}

TYPED_TEST(ModelTest, StartsWorksAndEndsAHundredTimesUnderLoad)
{
    for (int round = 0; round < 100; ++round) {
        Rig<TypeParam> rig;
        BatchSink<typename TypeParam::OutputEvent> sink;
        graph::nodes::BasicSourceNode<typename TypeParam::InputEvent> source;
        ASSERT_TRUE(source.addDestination(rig.model->getSinkNode().getInput()));
        ASSERT_TRUE(rig.model->getSourceNode().addDestination(sink.getInput()));
        std::atomic<bool> gone = false;
        std::thread graph([&] {
            for (int n = 0; n < 20; ++n) {
                source.write(this->spikesIn(10));
                rig.notes->say(this->spikesOut(10));
            }
        });
        std::thread user([&] {
            try {
                for (int n = 0; n < 20; ++n) {
                    rig.model->write(this->spikesIn(1));
                    rig.model->read();
                }
            } catch (const std::runtime_error&) {
                gone = true; // the device was handed out meanwhile
            }
        });
        const bool release = round % 2 == 1;
        const auto device = release ? rig.model->releaseDeviceAPI() : nullptr;
        EXPECT_EQ(device != nullptr, release);
        graph.join();
        user.join();
        EXPECT_TRUE(release || !gone);
        EXPECT_TRUE(release || rig.notes->waitForWrites(40));
    }
}

TYPED_TEST(ModelTest, EndsTheProcessWhenItsDeviceThrowsInTheThread)
{
    struct Broken : TypeParam::DeviceAPI {
        std::vector<typename TypeParam::OutputEvent> read() override { throw std::runtime_error("the cable is cut"); }
        void write(const std::vector<typename TypeParam::InputEvent>&) override {}
    };
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            typename TypeParam::Model model(std::make_unique<Broken>());
            std::promise<void>().get_future().wait();
        },
        "the cable is cut");
}

TEST(TesselModelSink, TakesOneBatchAStep)
{
    tessel::TesselModelSink sink;
    graph::nodes::BasicSourceNode<tessel::event::InputEvent> source;
    ASSERT_TRUE(source.addDestination(sink.getInput()));
    const tessel::event::InputEvent first = tessel::event::ReadProbe{1}, second = tessel::event::ReadProbe{2};
    source.write({first, first});
    source.write({second});
    EXPECT_THAT(sink.getEventBuf(), ElementsAre(first, first));
    sink.apply();
    EXPECT_THAT(sink.getEventBuf(), ElementsAre(second));
    EXPECT_THAT(sink.getEventBuf(), IsEmpty());
}

// ---- bringing a ravik chip up -------------------------------------------------------------------------------------

/// Notes the steps in their order.
struct BoardWithLines : ravik::RavikDeviceAPIInterface, ravik::RavikChipControl {
    explicit BoardWithLines(std::vector<std::string>& steps) : steps(steps) {}
    std::vector<ravik::event::OutputEvent> read() override { return {}; }
    void write(const std::vector<ravik::event::InputEvent>& events) override
    {
        if (!events.empty())
            steps.push_back("write " + std::to_string(events.size()));
    }
    void init() override { steps.emplace_back("init"); }
    void writeConfig(std::uint16_t a, std::uint16_t b) override
    {
        steps.push_back("config " + std::to_string(a) + " " + std::to_string(b));
    }
    void deassertReset() override { steps.emplace_back("deassert reset"); }
    void resetRegisters() override { steps.emplace_back("reset registers"); }

    std::vector<std::string>& steps; // of the caller's thread: the model's writes nothing here
};

TEST(RavikModel, BringsItsChipUpStepByStep)
{
    std::vector<std::string> steps;
    ravik::RavikModel model(std::make_unique<BoardWithLines>(steps));
    const auto start = std::chrono::steady_clock::now();
    model.init();
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(300));
    EXPECT_THAT(steps, ElementsAre("init", "config 2 15", "deassert reset", "reset registers", "write 16384"));

    Rig<Ravik> plain;
    EXPECT_EQ(errorOf([&] { plain.model->init(); }), "This model's device interface can't reset the chip.");
    EXPECT_THAT(plain.notes->writes, IsEmpty());
}

TEST(RavikModel, SilencesThePixelsRowByRow)
{
    Rig<Ravik> rig;
    rig.model->killAllPixels();
    ASSERT_THAT(rig.notes->writes, SizeIs(1));
    const auto& events = rig.notes->writes[0];
    ASSERT_THAT(events, SizeIs(128 * 128));
    for (std::size_t i = 0; i < events.size(); ++i)
        ASSERT_EQ(events[i], ravik::event::InputEvent(ravik::event::KillSensorPixel{
                                 static_cast<std::uint8_t>(i / 128), static_cast<std::uint8_t>(i % 128)}));
}

// ---- a chip in memory ---------------------------------------------------------------------------------------------

namespace in = tessel::event;
struct MemoryRow {
    const char* what;
    std::vector<in::InputEvent> written;
    std::vector<in::OutputEvent> answered;
};

const std::vector<MemoryRow> memoryRows{
    {"what was never written is 0", {in::ReadRegisterValue{1, 2}}, {in::RegisterValue{1, 2, 0, 0}}},
    {"registers are kept by block and number",
     {in::WriteRegisterValue{1, 2, 0xFFFF}, in::WriteRegisterValue{2, 1, 7}, in::WriteRegisterValue{2, 1, 8},
      in::ReadRegisterValue{2, 1}, in::ReadRegisterValue{1, 2}},
     {in::RegisterValue{2, 1, 8, 0}, in::RegisterValue{1, 2, 0xFFFF, 0}}},
    {"memory is none of the registers'",
     {in::WriteMemoryValue{1, 2, 9}, in::ReadMemoryValue{1, 2}, in::ReadRegisterValue{1, 2}},
     {in::MemoryValue{1, 2, 9, 0}, in::RegisterValue{1, 2, 0, 0}}},
    {"the three memories of a layer, and tags",
     {in::WriteNeuronValue{3, 70000, true, -5}, in::WriteWeightValue{3, 70000, false, -6},
      in::WriteBiasValue{3, 70000, true, 7}, in::ReadNeuronValue{3, 70000, 21}, in::ReadWeightValue{3, 70000, 22},
      in::ReadBiasValue{3, 70000, 23}, in::ReadBiasValue{4, 70000, 24}},
     {in::NeuronValue{21, true, -5, 0}, in::WeightValue{22, false, -6, 0}, in::BiasValue{23, true, 7, 0},
      in::BiasValue{24, false, 0, 0}}},
    {"a probe", {in::ReadProbe{5}, in::ReadProbe{6}}, {in::ProbeValue{5, 17}, in::ProbeValue{6, 0}}},
    {"spikes go nowhere", {in::Spike{1, 2, 3, 4, 5}, in::RouterEvent{1, 2, 3, 4}}, {}},
};

TEST(MemoryChip, AnswersReadsWithWhatWasWritten)
{
    for (const auto& row : memoryRows) {
        tessel::MemoryChip chip;
        chip.setProbe(5, 17);
        chip.write(row.written);
        EXPECT_EQ(chip.read(), row.answered) << row.what;
        EXPECT_THAT(chip.read(), IsEmpty()) << row.what;
        EXPECT_EQ(chip.getWrittenCount(), row.written.size());
    }
}

TEST(MemoryChip, LoopsBackAndSaysWhatIsQueuedInOrder)
{
    ravik::MemoryChip chip;
    chip.setLoopBack(true);
    const ravik::event::Spike spike{1, 2, 3, 4, 5};
    chip.queueOutput({ravik::event::ReadoutValue{9}});
    chip.write({ravik::event::RouterEvent{13, 1, 2, 3}, spike, ravik::event::KillSensorPixel{}});
    chip.queueOutput({ravik::event::DvsEvent{}});
    using Out = ravik::event::OutputEvent;
    EXPECT_THAT(chip.read(), ElementsAre(Out(ravik::event::ReadoutValue{9}), Out(ravik::event::Spike{13, 1, 2, 3, 0}),
                                         Out(spike), Out(ravik::event::DvsEvent{})));
}

TEST(MemoryChip, RecordsOnlyWhenTold)
{
    tessel::MemoryChip chip;
    const in::InputEvent first = in::ReadProbe{1}, second = in::ReadProbe{2};
    chip.write({first});
    chip.setRecording(true);
    chip.write({second});
    chip.write({first, second});
    EXPECT_THAT(chip.takeWritten(), ElementsAre(second, first, second));
    EXPECT_THAT(chip.takeWritten(), IsEmpty());
}

TYPED_TEST(ModelTest, DrivesAChipInMemory)
{
    const auto chip = std::make_shared<typename TypeParam::MemoryChip>();
    typename TypeParam::MemoryModel model(chip);
    struct : BatchSink<typename TypeParam::OutputEvent> {
        auto next() { return test::next(*this->inputChannel); }
    } answers;
    graph::nodes::BasicSourceNode<typename TypeParam::InputEvent> questions;
    ASSERT_TRUE(model.addDestination(answers.getInput()));
    ASSERT_TRUE(questions.addDestination(model.getInput()));
    model.applyConfiguration({});
    EXPECT_EQ(chip->getWrittenCount(), TypeParam::translate({}).size());
    model.write({typename TypeParam::WriteRegister{12, 60, 345}});
    questions.write({typename TypeParam::ReadRegister{12, 60}});
    const auto answer = answers.next();
    ASSERT_TRUE(answer);
    EXPECT_THAT(**answer,
                ElementsAre(typename TypeParam::OutputEvent(typename TypeParam::RegisterValue{12, 60, 345, 0})));

    model.stop();
    model.stop();
    model.write({typename TypeParam::ReadRegister{12, 60}}); // reaches the chip, but nobody carries the answer on
    EXPECT_THAT(model.read(), SizeIs(1));
    EXPECT_THAT(answers.batches(), IsEmpty());
}

// ---- through two nodes --------------------------------------------------------------------------------------------

template <class Class>
trovi::remote::Class<Class> proxy(const trovi::remote::Element& element)
{
    trovi::remote::Class<Class> made(element);
    made.bindMembersAndMethods();
    return made;
}

TYPED_TEST(ModelTest, IsDrivenThroughTwoNodes)
{
    using Model = typename TypeParam::Model;
    using In = std::vector<typename TypeParam::InputEvent>;
    using Out = std::vector<typename TypeParam::OutputEvent>;

    test::Server server(test::anyPort, test::anyPort, 1);
    test::Client client(server.receiverEndpoint(), server.senderEndpoint(), 20);
    test::waitUntilConnected(client, server.id());
    Rig<TypeParam> rig;
    ASSERT_TRUE(rig.notes->waitForTurns(1));
    rig.notes->sayToOthers(this->spikesOut(2));
    const auto ref = server.store().insert("chip", std::move(rig.model));
    const auto model = proxy<Model>(trovi::remote::Element(&client.channel(), ref));

    typename TypeParam::Configuration configuration;
    configuration.cnn_layers[0].threshold_high = 123;
    model.template invoke<void>("apply_configuration", configuration);
    model.template invoke<void>("write", this->spikesIn(2));
    EXPECT_THAT(rig.notes->writesUntilNow(), ElementsAre(TypeParam::translate(configuration), this->spikesIn(2)));
    EXPECT_EQ(model.template invoke<Out>("read"), this->spikesOut(2));

    // chains: the nodes stay on the far side
    const auto source = proxy<typename Model::SourceNode>(model.child(model.function("getSourceNode").id()));
    const auto sink = proxy<typename Model::SinkNode>(model.child(model.function("getSinkNode").id()));
    BatchSink<typename TypeParam::OutputEvent> answers;
    EXPECT_TRUE(source.template invoke<bool>("addDestination", answers.getInput()));
    EXPECT_FALSE(source.template invoke<bool>("addDestination", trovi::BoxedPtr()));
    source.template invoke<void>("write", this->spikesOut(3));
    EXPECT_EQ(*answers.batches().at(0), this->spikesOut(3));
    rig.notes->say(this->spikesOut(4));
    ASSERT_TRUE(rig.notes->waitForTurns(3));
    EXPECT_EQ(*answers.batches().at(0), this->spikesOut(4));

    graph::nodes::BasicSourceNode<typename TypeParam::InputEvent> feeder;
    ASSERT_TRUE(feeder.addDestination(sink.template invoke<trovi::BoxedPtr>("getinputNode")));
    feeder.write(this->spikesIn(5));
    EXPECT_TRUE(rig.notes->waitForWrites(3));
    if constexpr (std::is_same_v<TypeParam, Tessel>) {
        EXPECT_THAT(sink.template invoke<In>("getEventBuf"), IsEmpty());
    }
    EXPECT_TRUE(server.store().erase(ref));
}

template <class Class>
std::vector<std::string> functionNames()
{
    return node_testing::functionNames<Class>();
}

TEST(ChipModels, ReflectedNames)
{
    for (const auto& names : {functionNames<tessel::TesselModel>(), functionNames<ravik::RavikModel>()})
        EXPECT_THAT(names, ElementsAre("apply_configuration", "read", "write", "getSourceNode", "getSinkNode"));
    EXPECT_THAT(functionNames<tessel::TesselModelSink>(), ElementsAre("getEventBuf", "getinputNode"));
    EXPECT_THAT(functionNames<tessel::TesselModelSource>(), testing::UnorderedElementsAre("addDestination", "write"));
    EXPECT_EQ(trovi::typeName<ravik::RavikModel>(), "ravik::RavikModel");
    EXPECT_EQ(trovi::typeName<tessel::TesselModelSink>(), "tessel::TesselModelSink");
}

} // namespace
