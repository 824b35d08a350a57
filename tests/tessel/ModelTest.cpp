// Models over a device interface that records what they do, and over a chip in memory.

#include "tessel/family/Family.h"
#include VORNA_FAMILY_HEADER(Model)

#include <any>
#include <atomic>
#include <future>
#include <sstream>

#include <gmock/gmock.h>

#include "../graph/NodeTesting.h"
#include "FakeDevice.h"
#include VORNA_FAMILY_HEADER(MemoryChip)
#include VORNA_FAMILY_HEADER_IN(configuration, Translation)
#include VORNA_FAMILY_HEADER_IN(configuration, Validation)

namespace VORNA_FAMILY {
namespace {

using namespace event;
using Configuration = configuration::VORNA_FAMILY_NAME(Configuration);
using node_testing::errorOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using InputSource = graph::nodes::BasicSourceNode<InputEvent>;
using OutputSink = node_testing::BatchSink<OutputEvent>;

constexpr const char* noDevice = "This model's device interface has been released.";

InputEvents translated(const Configuration& c) { return VORNA_FAMILY_FUNCTION(ConfigurationToEvent)(c); }
In spikesIn(std::size_t count, std::uint8_t layer = 1) { return In(count, Spike{layer, 2, 3, 4, 5}); }
Out spikesOut(std::size_t count) { return Out(count, Spike{6, 7, 8, 9, 10}); }

/// A model over a device that records.
struct ModelTest : testing::Test {
    std::shared_ptr<FakeDevice::Record> record = std::make_shared<FakeDevice::Record>();
    std::unique_ptr<Model> model = std::make_unique<Model>(std::make_unique<FakeDevice>(record));
};

TEST_F(ModelTest, WritesAValidConfigurationAtOnce)
{
    Configuration config;
    config.cnn_layers[8].threshold_low = -3;
    model->applyConfiguration(config);
    ASSERT_THAT(record->writes, SizeIs(1));
    EXPECT_EQ(record->writes[0], translated(config));
    model->applyConfiguration(config);
    EXPECT_THAT(record->writesUntilNow(), SizeIs(2)) << "the same again is sent again";
}

TEST_F(ModelTest, RefusesAnInvalidConfigurationWithAllThatIsWrong)
{
    Configuration config;
    config.cnn_layers[2].dimensions.kernel_size = 77;
    config.dvs_layer.pooling = {3, 5};
    std::ostringstream findings;
    ASSERT_FALSE(validate(config, findings));
    EXPECT_EQ(errorOf([&] { model->applyConfiguration(config); }), findings.str());
    EXPECT_THAT(record->writesUntilNow(), IsEmpty());
}

TEST_F(ModelTest, CarriesBatchesFromItsSinkToTheDeviceWithoutCopyingThem)
{
    InputSource source;
    ASSERT_TRUE(source.addDestination(model->getSinkNode().getInput()));
    auto batch = spikesIn(1000);
    const auto* const memory = batch.data();
    source.write(batch);
    source.write(spikesIn(3, 2));
    source.write(std::move(batch));
    ASSERT_TRUE(record->waitForWrites(3));
    EXPECT_THAT(record->writesUntilNow(), ElementsAre(spikesIn(1000), spikesIn(3, 2), spikesIn(1000)));
    EXPECT_EQ(record->memory[2], memory);
}

TEST_F(ModelTest, CarriesWhatItReadsToAllDestinationsWithoutCopyingIt)
{
    OutputSink left, right;
    ASSERT_TRUE(model->getSourceNode().addDestination(left.getInput()));
    ASSERT_TRUE(model->getSourceNode().addDestination(right.getInput()));
    auto said = spikesOut(1000);
    const auto* const memory = said.data();
    record->say(std::move(said));
    record->say(spikesOut(1));
    ASSERT_TRUE(record->waitForTurns(4));
    const auto batches = left.batches();
    EXPECT_EQ(batches, right.batches()) << "both own the same vectors";
    ASSERT_THAT(batches, SizeIs(2)) << "empty reads send nothing";
    EXPECT_EQ(batches[0]->data(), memory);
    EXPECT_EQ(*batches[1], spikesOut(1));
}

TEST_F(ModelTest, ForgetsADeadDestinationAtTheNextEventsAndNotBefore)
{
    auto& source = model->getSourceNode();
    const auto inputThatDies = [&] {
        const OutputSink sink;
        EXPECT_TRUE(source.addDestination(sink.getInput()));
        return *sink.getInputChannel();
    };
    std::any input = inputThatDies();
    ASSERT_TRUE(record->waitForTurns(3));
    EXPECT_TRUE(source.removeDestination(&input)) << "nothing was read: it is still there";

    input = inputThatDies();
    record->say(spikesOut(1));
    ASSERT_TRUE(record->waitForTurns(3));
    EXPECT_FALSE(source.removeDestination(&input));
}

TEST_F(ModelTest, HandsItsDeviceOutAndThenSleeps)
{
    ASSERT_TRUE(record->waitForTurns(1));
    const auto device = model->releaseDeviceAPI();
    EXPECT_EQ(device->getDeviceTypeName(), "generic device");
    const auto turns = record->turns;
    InputSource source;
    ASSERT_TRUE(source.addDestination(model->getSinkNode().getInput()));
    source.write(spikesIn(1));

    EXPECT_EQ(model->releaseDeviceAPI(), nullptr);
    EXPECT_EQ(errorOf([&] { model->read(); }), noDevice);
    EXPECT_EQ(errorOf([&] { model->write({}); }), noDevice);
    EXPECT_EQ(errorOf([&] { model->applyConfiguration({}); }), noDevice);
    model.reset();
    EXPECT_EQ(record->turns, turns);
    EXPECT_THAT(record->writesUntilNow(), IsEmpty());
}

TEST_F(ModelTest, NeedsADevice)
{
    EXPECT_EQ(errorOf<std::invalid_argument>([] { Model model(nullptr); }), "A model needs a device interface.");
    EXPECT_EQ(errorOf<std::invalid_argument>([] { MemoryDeviceAPI device(nullptr); }),
              "A device interface in memory needs a chip.");
}

TEST_F(ModelTest, StartsWorksAndEndsAHundredTimesUnderLoad)
{
    for (int round = 0; round < 100; ++round) {
        record = std::make_shared<FakeDevice::Record>();
        model = std::make_unique<Model>(std::make_unique<FakeDevice>(record));
        OutputSink sink;
        InputSource source;
        ASSERT_TRUE(source.addDestination(model->getSinkNode().getInput()));
        ASSERT_TRUE(model->getSourceNode().addDestination(sink.getInput()));
        std::atomic<bool> gone = false;
        std::thread graph([&] {
            for (int n = 0; n < 20; ++n) {
                source.write(spikesIn(10));
                record->say(spikesOut(10));
            }
        });
        std::thread user([&] {
            try {
                for (int n = 0; n < 20; ++n) {
                    model->write(spikesIn(1));
                    model->read();
                }
            } catch (const std::runtime_error&) {
                gone = true; // the device was handed out meanwhile
            }
        });
        const bool release = round % 2 == 1;
        const auto device = release ? model->releaseDeviceAPI() : nullptr;
        EXPECT_EQ(device != nullptr, release);
        graph.join();
        user.join();
        EXPECT_TRUE(release || !gone);
        EXPECT_TRUE(release || record->waitForWrites(40));
    }
}

TEST_F(ModelTest, EndsTheProcessWhenItsDeviceThrowsInTheThread)
{
    struct Broken : DeviceAPI {
        Out read() override { throw std::runtime_error("the cable is cut"); }
        void write(const In&) override {}
    };
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            Model model(std::make_unique<Broken>());
            std::promise<void>().get_future().wait();
        },
        "the cable is cut");
}

// ---- a chip in memory ------------------------------------------------------------------------------------------

const struct {
    const char* what;
    In written;
    Out answered;
} memoryRows[] = {
    {"what was never written is 0", {ReadRegisterValue{1, 2}}, {RegisterValue{1, 2, 0, 0}}},
    {"registers are kept by block and number",
     {WriteRegisterValue{1, 2, 0xFFFF}, WriteRegisterValue{2, 1, 7}, WriteRegisterValue{2, 1, 8},
      ReadRegisterValue{2, 1}, ReadRegisterValue{1, 2}},
     {RegisterValue{2, 1, 8, 0}, RegisterValue{1, 2, 0xFFFF, 0}}},
    {"memory is none of the registers'",
     {WriteMemoryValue{1, 2, 9}, ReadMemoryValue{1, 2}, ReadRegisterValue{1, 2}},
     {MemoryValue{1, 2, 9, 0}, RegisterValue{1, 2, 0, 0}}},
    {"the three memories of a layer, and tags",
     {WriteNeuronValue{3, 70000, true, -5}, WriteWeightValue{3, 70000, false, -6}, WriteBiasValue{3, 70000, true, 7},
      ReadNeuronValue{3, 70000, 21}, ReadWeightValue{3, 70000, 22}, ReadBiasValue{3, 70000, 23},
      ReadBiasValue{4, 70000, 24}},
     {NeuronValue{21, true, -5, 0}, WeightValue{22, false, -6, 0}, BiasValue{23, true, 7, 0},
      BiasValue{24, false, 0, 0}}},
    {"a probe", {ReadProbe{5}, ReadProbe{6}}, {ProbeValue{5, 17}, ProbeValue{6, 0}}},
    {"spikes go nowhere", {Spike{1, 2, 3, 4, 5}, RouterEvent{1, 2, 3, 4}}, {}},
};

TEST(MemoryChip, AnswersReadsWithWhatWasWritten)
{
    for (const auto& row : memoryRows) {
        MemoryChip chip;
        chip.setProbe(5, 17);
        chip.write(row.written);
        EXPECT_EQ(chip.read(), row.answered) << row.what;
        EXPECT_THAT(chip.read(), IsEmpty()) << row.what;
    }
}

TEST(MemoryChip, LoopsBackAndRecordsInOrder)
{
    MemoryChip chip;
    chip.write({Spike{}}); // before both
    chip.setLoopBack(true);
    chip.setRecording(true);
    const Spike spike{1, 2, 3, 4, 5};
    chip.queueOutput({ReadoutValue{9}});
    const In written{RouterEvent{13, 1, 2, 3}, spike, KillSensorPixel{}};
    chip.write(written);
    chip.queueOutput({DvsEvent{}});
    EXPECT_THAT(chip.read(), ElementsAre(OutputEvent(ReadoutValue{9}), OutputEvent(Spike{13, 1, 2, 3, 0}),
                                         OutputEvent(spike), OutputEvent(DvsEvent{})));
    EXPECT_EQ(chip.takeWritten(), written);
    EXPECT_THAT(chip.takeWritten(), IsEmpty());
    EXPECT_EQ(chip.getWrittenCount(), 4U);
}

TEST(ModelFunctions, HaveTheirNames)
{
    EXPECT_THAT(node_testing::functionNames<Model>(),
                ElementsAre("apply_configuration", "read", "write", "getSourceNode", "getSinkNode"));
    EXPECT_THAT(node_testing::functionNames<Model::SourceNode>(),
                testing::UnorderedElementsAre("addDestination", "write"));
    EXPECT_EQ(trovi::typeName<Model>(), VORNA_FAMILY_TEXT "::" VORNA_FAMILY_TEXT_OF(VORNA_FAMILY_NAME(Model)));
}

} // namespace
} // namespace VORNA_FAMILY
