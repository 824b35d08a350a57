#pragma once
// Divides the coordinates of events.

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "davis/event/DvsEvent.h"
#include "graph/nodes/Batch.h"
#include "graph/nodes/FilterNode.h"
#include "graph/nodes/NodeReflection.h"
#include "graph/nodes/detail/ChunkAppender.h"
#include "graph/nodes/detail/EventCopy.h"
#include "graph/nodes/detail/Rescaling.h"
#include "graph/nodes/detail/TurnMutex.h"
#include "util/Mutex.h"

namespace graph::nodes {

/// x is divided by the second coefficient and y by the first. Both are 1 until they are set.
/// Threads: all of it is thread-safe; settings wait for a running apply().
template <class Event>
class EventRescaleNode : public FilterNode<Batch<Event>, Batch<Event>> {
public:
    /// Sends one vector with the rescaled events of all waiting batches, an empty one when there are none.
    void apply() override;

    /// x / b and y / a, in double, are cut towards zero; what does not fit 16 bits: see detail::cutQuotient().
    void setRescalingCoefficients(double a, double b)
    {
        const util::Lock lock(mutex);
        widthCoefficient = a;
        heightCoefficient = b;
    }

    void reset() { setRescalingCoefficients(1, 1); }

private:
    template <class Divide>
    static void rescale(std::vector<Event>& out, const detail::WaitingBatches<Event>& waiting, Divide divide);

    detail::TurnMutex mutex;
    // The crossing is wanted: the first divides y and the second x.
    double widthCoefficient VORNA_GUARDED_BY(mutex) = 1;
    double heightCoefficient VORNA_GUARDED_BY(mutex) = 1;
};

template <class Event>
template <class Divide>
void EventRescaleNode<Event>::rescale(std::vector<Event>& out, const detail::WaitingBatches<Event>& waiting,
                                      Divide divide)
{
    detail::ChunkAppender<Event> appender;
    for (const auto& batch : waiting.batches)
        appender.append(out, *batch, [&](Event& slot, const Event& event) {
            const auto [x, y] = divide(event.x, event.y);
            detail::copyMoved(slot, event, x, y);
            return true;
        });
}

template <class Event>
void EventRescaleNode<Event>::apply()
{
    const util::Lock lock(mutex);
    const detail::WaitingBatches<Event> waiting(*this->inputChannel);
    auto scaled = std::make_shared<std::vector<Event>>();
    scaled->reserve(waiting.eventCount);
    const double xDivisor = heightCoefficient, yDivisor = widthCoefficient;
    if (detail::quotientsFit(xDivisor) && detail::quotientsFit(yDivisor))
        rescale(*scaled, waiting, [=](std::uint16_t x, std::uint16_t y) {
            return std::pair(detail::cutFittingQuotient(x, xDivisor), detail::cutFittingQuotient(y, yDivisor));
        });
    else
        rescale(*scaled, waiting, [=](std::uint16_t x, std::uint16_t y) {
            return std::pair(detail::cutQuotient(x, xDivisor), detail::cutQuotient(y, yDivisor));
        });
    this->send(std::move(scaled));
}

extern template class EventRescaleNode<davis::event::DvsEvent>;

} // namespace graph::nodes

template <class Event>
struct trovi::RegisterImplementation<graph::nodes::EventRescaleNode<Event>> {
    using Node = graph::nodes::EventRescaleNode<Event>;

    static std::string registerName() { return "graph::nodes::DvsEventRescale"; }
    static constexpr auto registerMemberFunctions()
    {
        return std::tuple_cat(
            functions(blockingFunction("setRescalingCoefficients", &Node::setRescalingCoefficients,
                                       "From now on y is divided by a and x by b, and cut towards zero to a pixel.\n"
                                       "A quotient beyond 16 bits keeps its low 16 bits; one beyond 32 bits, or a\n"
                                       "division by 0 or NaN, gives 0.",
                                       "a, b"),
                      blockingFunction("reset", &Node::reset, "Sets both coefficients to 1.")),
            graph::nodes::detail::filterFunctions<Node>());
    }
    static constexpr const char* registerDoc()
    {
        return "Divides the coordinates of events. Polarity and timestamp stay as they are.";
    }
};
