#pragma once
// A node without output: where a graph ends.

#include "ondra/FilterInterface.h"

namespace ondra {

template <class T>
class SinkInterface : public FilterInterface<T, void> {};

} // namespace ondra
