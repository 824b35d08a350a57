#pragma once
// Inputs of nodes in the form in which a script passes them from one node to another.

#include <any>

#include "ondra/NodeInterface.h"
#include "trovi/BoxedPtr.h"

namespace graph::nodes::detail {

/// The input of `node`, good for as long as the node lives.
trovi::BoxedPtr boxInput(const ondra::NodeInterface& node);

/// A copy of the input in `boxed`; empty when that node is gone.
/// @throws std::runtime_error when `boxed` is of another process, of another type or empty
std::any unboxInputOrThrow(const trovi::BoxedPtr& boxed);

/// The same, and empty instead of an exception.
std::any unboxInput(const trovi::BoxedPtr& boxed);

} // namespace graph::nodes::detail
