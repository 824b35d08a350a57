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
        for (In value; this->inputChannel->try_dequeue(value);)
            results.push_back(function(value));
        if (!results.empty())
            send(results);
        this->removeExpiredDestinations();
    }

private:
    // The last destination gets the results themselves: of a batch that goes to one node alone, that is the only owner,
    // and may use its vector for itself.
    void send(std::vector<Out>& results)
    {
        for (std::size_t i = 0; i < this->destinations.size(); ++i)
            if (const auto channel = this->destinations[i].lock()) {
                if (i + 1 < this->destinations.size())
                    channel->enqueue_bulk(results.cbegin(), results.size());
                else
                    channel->enqueue_bulk(std::make_move_iterator(results.begin()), results.size());
            }
    }

    std::function<Out(const In&)> function;
};

} // namespace ondra
