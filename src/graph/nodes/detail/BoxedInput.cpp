#include "graph/nodes/detail/BoxedInput.h"

#include <stdexcept>

namespace graph::nodes::detail {

trovi::BoxedPtr boxInput(const ondra::NodeInterface& node) { return trovi::BoxedPtr::of(node.getInputChannel()); }

const std::any* unboxInput(const trovi::BoxedPtr& boxed)
{
    try {
        return boxed.get<const std::any*>();
    } catch (const std::runtime_error&) {
        return nullptr;
    }
}

} // namespace graph::nodes::detail
