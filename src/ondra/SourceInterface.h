#pragma once
// A node without input: what feeds a graph.

#include "ondra/FilterInterface.h"

namespace ondra {

template <class T>
class SourceInterface : public FilterInterface<void, T> {};

} // namespace ondra
