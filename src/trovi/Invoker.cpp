#include "trovi/Invoker.h"

#include <stdexcept>

namespace trovi::detail {

void throwTupleIndex() { throw std::runtime_error("Tuple index out of range!"); }

} // namespace trovi::detail
