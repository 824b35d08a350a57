#include "ondra/detail/LiveInputs.h"

namespace ondra::detail {

LiveInputs& LiveInputs::getInstance()
{
    static auto* const instance = new LiveInputs; // never destroyed: a node may outlive all static objects
    return *instance;
}

void LiveInputs::add(const std::any* input)
{
    const util::Lock lock(mutex);
    inputs.insert(input);
}

void LiveInputs::remove(const std::any* input)
{
    const util::Lock lock(mutex);
    inputs.erase(input);
}

std::any LiveInputs::copyOf(const std::any* input) const
{
    const util::Lock lock(mutex); // so that the node can't be destroyed meanwhile
    return inputs.contains(input) ? *input : std::any();
}

} // namespace ondra::detail
