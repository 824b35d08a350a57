#include "keplin/io/KeplinReaderWriter.h"

#include <algorithm>
#include <utility>

namespace keplin {

namespace {

constexpr int blocksPerRead = 8;
constexpr std::int32_t mostWordsPerWrite = 16 * BlockWords;

} // namespace

KeplinReaderWriter::KeplinReaderWriter(KeplinEndpoint& endpoint, PacketQueue& transmitQueue, PacketQueue& receiveQueue)
    : endpoint(endpoint), transmitQueue(transmitQueue), receiveQueue(receiveQueue)
{}

bool KeplinReaderWriter::setPacketDispatcher(std::shared_ptr<PacketDispatcher> newDispatcher)
{
    return thread.whileStopped([&] {
        useDispatcher = newDispatcher != nullptr;
        dispatcher = std::move(newDispatcher);
    });
}

void KeplinReaderWriter::start()
{
    thread.start([this] { threadReadWrite(); });
}

void KeplinReaderWriter::stop() { thread.stop(); }

void KeplinReaderWriter::threadReadWrite()
{
    while (thread.running())
        singleShotReadWrite();
}

void KeplinReaderWriter::singleShotReadWrite()
{
    processReadBlocks(endpoint.readKeplinEndpoint(blocksPerRead));
    if (credit != 0 && transmitQueue.peekUnsafe())
        write();
}

void KeplinReaderWriter::processReadBlocks(const std::vector<std::uint8_t>& data)
{
    PacketDelivery delivery(useDispatcher ? dispatcher.get() : nullptr, receiveQueue, memory);
    credit = decoder.decode(data, credit, delivery);
}

void KeplinReaderWriter::write()
{
    const std::int32_t words = writer.collect(transmitQueue, std::min(credit, mostWordsPerWrite));
    if (words == 0)
        return;
    credit -= words;
    endpoint.writeKeplinEndpoint(writer.blocks()); // the packets of a failed write are lost
}

} // namespace keplin
