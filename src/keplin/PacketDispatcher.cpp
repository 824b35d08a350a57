#include "keplin/PacketDispatcher.h"

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
    tables.ev32.fill({defaultPktFunc, nullptr, true});
    tables.raw.fill({defaultPktFunc, nullptr, true});
}

void PacketDispatcher::setDispatchEntryEv32(std::uint8_t moduleId, pktfunc f)
{
    set(&Tables::ev32, moduleId, std::move(f));
}

void PacketDispatcher::setDispatchEntryRaw(std::uint8_t moduleId, pktfunc f)
{
    set(&Tables::raw, moduleId, std::move(f));
}

pktfunc PacketDispatcher::getDispatchEntryEv32(std::uint8_t moduleId) const { return get(&Tables::ev32, moduleId); }

pktfunc PacketDispatcher::getDispatchEntryRaw(std::uint8_t moduleId) const { return get(&Tables::raw, moduleId); }

void PacketDispatcher::set(Table Tables::*table, std::uint8_t moduleId, pktfunc f)
{
    detail::check(moduleId < MaxModules, "moduleId is out of range.");
    detail::check(f != nullptr, "Argument f must be a valid function.");
    Entry entry{std::move(f), nullptr, false};
    if (const auto* into = entry.function.target<EnqueueInto>())
        entry.queue = into->queue;
    else if (const auto* plain = entry.function.target<void (*)(PacketPtr)>())
        entry.pools = *plain == defaultPktFunc;
    const util::Lock lock(mutex);
    (tables.*table)[moduleId] = std::move(entry);
}

pktfunc PacketDispatcher::get(Table Tables::*table, std::uint8_t moduleId) const
{
    detail::check(moduleId < MaxModules, "moduleId is out of range.");
    const util::SharedLock lock(mutex);
    return (tables.*table)[moduleId].function;
}

const PacketDispatcher::Entry& PacketDispatcher::entryFor(const PacketBuffer& packet) const
{
    const std::uint32_t moduleId = packet.moduleId();
    detail::check(moduleId < MaxModules, "moduleId < MaxModules");
    const PktFmt format = packet.format();
    detail::check(format == PktFmt::Ev32 || format == PktFmt::Raw, "Unexpected packet format.");
    return (format == PktFmt::Ev32 ? tables.ev32 : tables.raw)[moduleId];
}

void PacketDispatcher::dispatch(PacketPtr packet) const
{
    if (!packet)
        return;
    const util::SharedLock lock(mutex);
    const pktfunc& function = entryFor(*packet).function;
    function(std::move(packet));
}

} // namespace keplin
