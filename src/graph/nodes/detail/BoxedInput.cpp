#include "graph/nodes/detail/BoxedInput.h"

#include <stdexcept>

#include "ondra/detail/LiveInputs.h"

namespace graph::nodes::detail {

trovi::BoxedPtr boxInput(const ondra::NodeInterface& node) { return trovi::BoxedPtr::of(node.getInputChannel()); }

std::any unboxInputOrThrow(const trovi::BoxedPtr& boxed)
{
    return ondra::detail::LiveInputs::getInstance().copyOf(boxed.get<const std::any*>());
}

std::any unboxInput(const trovi::BoxedPtr& boxed)
{
    try {
        return unboxInputOrThrow(boxed);
    } catch (const std::runtime_error&) {
        return {};
    }
}

} // namespace graph::nodes::detail
