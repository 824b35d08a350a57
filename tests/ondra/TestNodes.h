#pragma once
// Nodes over plain numbers.

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "ondra/FilterInterface.h"
#include "ondra/SinkInterface.h"
#include "ondra/SourceInterface.h"

namespace testing_nodes {

struct Source : ondra::SourceInterface<int> {
    void send(int value) { forwardResult(value); }
    using SourceInterface::destinations;
};

struct Sink : ondra::SinkInterface<int> {
    std::vector<int> received()
    {
        std::vector<int> values;
        for (int value; inputChannel->try_dequeue(value);)
            values.push_back(value);
        return values;
    }
};

struct TextSink : ondra::SinkInterface<const char*> {};

// Passes numbers on, and says so.
struct Relay : ondra::FilterInterface<int, int> {
    explicit Relay(std::function<void()> applied = [] {}) : applied(std::move(applied)) {}
    void apply() override
    {
        applied();
        for (int value; inputChannel->try_dequeue(value);)
            forwardResult(value);
    }
    std::function<void()> applied;
};

} // namespace testing_nodes
