#include "keplin/PacketDispatcher.h"

#include <mutex>
#include <utility>

#include "keplin/detail/Check.h"

namespace keplin {

namespace {

struct EnqueueInto {
    PacketQueue* queue;
    void operator()(PacketPtr packet) const { queue->enqueue(std::move(packet)); }
};

} // namespace

pktfunc enqueueInto(PacketQueue& queue) { return EnqueueInto{&queue}; }

PacketDispatcher::PacketDispatcher()
{
    ev32.fill({defaultPktFunc, nullptr, true});
    raw.fill({defaultPktFunc, nullptr, true});
}

void PacketDispatcher::setDispatchEntryEv32(std::uint8_t moduleId, pktfunc f) { set(ev32, moduleId, std::move(f)); }
void PacketDispatcher::setDispatchEntryRaw(std::uint8_t moduleId, pktfunc f) { set(raw, moduleId, std::move(f)); }

pktfunc PacketDispatcher::getDispatchEntryEv32(std::uint8_t moduleId) const { return get(ev32, moduleId); }
pktfunc PacketDispatcher::getDispatchEntryRaw(std::uint8_t moduleId) const { return get(raw, moduleId); }

void PacketDispatcher::set(Table& table, std::uint8_t moduleId, pktfunc f)
{
    detail::check(moduleId < MaxModules, "moduleId is out of range.");
    detail::check(f != nullptr, "Argument f must be a valid function.");
    Entry entry{std::move(f), nullptr, false};
    if (const auto* into = entry.function.target<EnqueueInto>())
        entry.queue = into->queue;
    else if (const auto* plain = entry.function.target<void (*)(PacketPtr)>())
        entry.pools = *plain == defaultPktFunc;
    const std::lock_guard lock(mutex);
    table[moduleId] = std::move(entry);
}

pktfunc PacketDispatcher::get(const Table& table, std::uint8_t moduleId) const
{
    detail::check(moduleId < MaxModules, "moduleId is out of range.");
    const std::shared_lock lock(mutex);
    return table[moduleId].function;
}

const PacketDispatcher::Entry& PacketDispatcher::entryFor(const PacketBuffer& packet) const
{
    const std::uint32_t moduleId = packet.moduleId();
    detail::check(moduleId < MaxModules, "moduleId < MaxModules");
    const PktFmt format = packet.format();
    detail::check(format == PktFmt::Ev32 || format == PktFmt::Raw, "Unexpected packet format.");
    return (format == PktFmt::Ev32 ? ev32 : raw)[moduleId];
}

void PacketDispatcher::dispatch(PacketPtr packet) const
{
    if (!packet)
        return;
    const std::shared_lock lock(mutex);
    const pktfunc& function = entryFor(*packet).function;
    function(std::move(packet));
}

} // namespace keplin
