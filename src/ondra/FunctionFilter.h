#pragma once
// A node made of a function: one output value for each input value, in order.

#include <functional>
#include <iterator>
#include <utility>
#include <vector>

#include "ondra/FilterInterface.h"

namespace ondra {

template <class In, class Out>
class FunctionFilter : public FilterInterface<In, Out> {
public:
    /// An empty function is taken; apply() then throws std::bad_function_call at the first value.
    explicit FunctionFilter(std::function<Out(const In&)> function) : function(std::move(function)) {}

    /// Sends the results of all waiting values as one bulk; sends nothing when none waits.
    void apply() override
    {
        std::vector<Out> results;
        In value;
        while (this->inputChannel->try_dequeue(value))
            results.push_back(function(value));
        if (!results.empty())
            for (const auto& destination : this->destinations)
                if (const auto channel = destination.lock())
                    channel->enqueue_bulk(results.cbegin(), results.size());
        this->removeExpiredDestinations();
    }

private:
    std::function<Out(const In&)> function;
};

} // namespace ondra
