#include "emulation/boards/VirtualBoards.h"

#include <algorithm>

#include "emulation/boards/BoardRegistry.h"

namespace emulation {

std::shared_ptr<VirtualDevKit> plugVirtualDevKit(const DevKitOptions& options)
{
    auto kit = std::make_shared<VirtualDevKit>(options);
    kit->replug();
    return kit;
}

std::shared_ptr<VirtualOpalKelly> plugVirtualOpalKelly(const OpalKellyOptions& options)
{
    auto board = std::make_shared<VirtualOpalKelly>(options);
    board->replug();
    return board;
}

std::vector<std::shared_ptr<VirtualBoard>> virtualBoards()
{
    auto boards = BoardRegistry::instance().boards();
    std::erase_if(boards, [](const auto& board) { return !board->isPlugged(); }); // pulled out by a fault
    return boards;
}

void unplugAllVirtualBoards()
{
    for (const auto& board : BoardRegistry::instance().boards())
        board->unplug();
}

} // namespace emulation
