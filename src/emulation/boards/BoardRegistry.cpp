#include "emulation/boards/BoardRegistry.h"

#include <algorithm>
#include <utility>

#include "emulation/boards/VirtualBoard.h"

namespace emulation {

BoardRegistry& BoardRegistry::instance()
{
    static auto* const registry = new BoardRegistry;
    return *registry;
}

void BoardRegistry::add(const std::shared_ptr<VirtualBoard>& board)
{
    std::vector<std::shared_ptr<VirtualBoard>> gone; // destroyed without the lock
    const util::Lock lock(mutex);
    const auto end = std::stable_partition(kept.begin(), kept.end(), [](const auto& b) { return b->isPlugged(); });
    gone.assign(end, kept.end());
    kept.erase(end, kept.end());
    if (std::find(kept.begin(), kept.end(), board) == kept.end())
        kept.push_back(board);
}

void BoardRegistry::remove(const VirtualBoard* board)
{
    std::shared_ptr<VirtualBoard> last; // destroyed without the lock
    const util::Lock lock(mutex);
    const auto found = std::find_if(kept.begin(), kept.end(), [&](const auto& b) { return b.get() == board; });
    if (found == kept.end())
        return;
    last = std::move(*found);
    kept.erase(found);
}

std::vector<std::shared_ptr<VirtualBoard>> BoardRegistry::boards() const
{
    const util::Lock lock(mutex);
    return kept;
}

} // namespace emulation
