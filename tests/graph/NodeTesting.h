#pragma once
// Around one node: a source in front of it and a sink behind.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "graph/nodes/BasicSourceNode.h"
#include "graph/nodes/SinkNode.h"

namespace node_testing {

/// A sink that a test reads by hand.
template <class Event>
struct BatchSink : graph::nodes::SinkNode<graph::nodes::Batch<Event>> {
    /// All batches that wait.
    std::vector<graph::nodes::Batch<Event>> batches()
    {
        return graph::nodes::detail::WaitingBatches<Event>(*this->inputChannel).batches;
    }
    /// The events of all batches that wait.
    std::vector<Event> drain()
    {
        std::vector<Event> events;
        graph::nodes::detail::appendWaiting(*this->inputChannel, events);
        return events;
    }
    /// The events of the next batch; nothing after a minute without one, which no good run comes near.
    std::optional<std::vector<Event>> wait()
    {
        graph::nodes::Batch<Event> batch;
        return this->inputChannel->wait_dequeue_timed(batch, std::int64_t{60'000'000}) ? std::optional(*batch)
                                                                                       : std::nullopt;
    }
    std::size_t waiting() const { return this->inputChannel->size_approx(); }
};

/// Sends batches into a node and looks at what comes out of one apply().
template <class In, class Out = In>
class Bench {
public:
    explicit Bench(ondra::NodeInterface& node) : node(node)
    {
        EXPECT_TRUE(source.connectTo(node));
        EXPECT_TRUE(node.connectTo(sink));
    }
    std::vector<graph::nodes::Batch<Out>> apply(const std::vector<std::vector<In>>& batches)
    {
        for (const auto& batch : batches)
            source.write(batch);
        node.apply();
        return sink.batches();
    }
    /// The events of the one batch that came out.
    std::vector<Out> applyOne(const std::vector<std::vector<In>>& batches)
    {
        const auto out = apply(batches);
        EXPECT_THAT(out, testing::SizeIs(1));
        return out.size() == 1 ? *out[0] : std::vector<Out>();
    }

    graph::nodes::BasicSourceNode<In> source;
    BatchSink<Out> sink;

private:
    ondra::NodeInterface& node;
};

template <class Node>
trovi::BoxedPtr inputOfDeadNode()
{
    return std::make_unique<Node>()->getInput();
}

template <class Node>
std::vector<std::string> functionNames()
{
    std::vector<std::string> names;
    trovi::forEach(trovi::MetaFunctionHolder<Node>::memberFuncs, [&](const auto& f) {
        EXPECT_STRNE(f.doc, "") << f.name;
        names.push_back(f.name);
    });
    return names;
}

/// The text of the std::runtime_error that `call` throws.
template <class Error = std::runtime_error, class Call>
std::string errorOf(Call call)
{
    try {
        call();
    } catch (const Error& error) {
        return error.what();
    }
    return "nothing was thrown";
}

} // namespace node_testing
