// Rising numbers.
#include "soft_driver/counter_source.h"

#include <endian.h>

#include <algorithm>
#include <cstring>

#include "soft_driver/channel_writer.h"
#include "soft_driver/pacer.h"

namespace tiv::soft_driver {
namespace {

constexpr size_t NUMBER_BYTES = sizeof(uint64_t);

// `bytes` of the number that start at its byte `offset`.
void CopyPart(char* out, uint64_t number, size_t offset, size_t bytes) {
    const uint64_t wire = htole64(number);
    memcpy(out, reinterpret_cast<const char*>(&wire) + offset, bytes);
}

}  // namespace

void CounterStream::Fill(char* out, size_t bytes) {
    const size_t offset = position_ % NUMBER_BYTES;
    uint64_t number = position_ / NUMBER_BYTES;
    position_ += bytes;
    if (offset != 0) {
        const size_t part = std::min(bytes, NUMBER_BYTES - offset);
        CopyPart(out, number++, offset, part);
        out += part;
        bytes -= part;
    }
    const size_t whole = bytes / NUMBER_BYTES;
    for (size_t i = 0; i < whole; ++i) {
        const uint64_t wire = htole64(number + i);
        memcpy(out + i * NUMBER_BYTES, &wire, NUMBER_BYTES);
    }
    if (bytes % NUMBER_BYTES != 0) {
        CopyPart(out + whole * NUMBER_BYTES, number + whole, 0, bytes % NUMBER_BYTES);
    }
}

bool CounterSource::Prepare(const StartRecord& start) {
    (void)start;  // numbers have no period and no events
    return true;
}

SourceDescription CounterSource::Describe() const {
    SourceDescription description;
    description.recordBytes = NUMBER_BYTES;
    return description;
}

void CounterSource::Run(ChannelWriter& writer) {
    uint64_t left = settings_.limitBytes == 0 ? UINT64_MAX : settings_.limitBytes;
    Pacer pacer(settings_.bytesPerSecond, settings_.burstBytes, ReadySet::Clock::now());
    while (left > 0 && writer.SleepUntil(pacer.Next(ReadySet::Clock::now()))) {
        const uint64_t portion = std::min(left, pacer.PortionBytes());
        if (!Produce(writer, portion)) {
            return;
        }
        left -= portion;
    }
}

bool CounterSource::Produce(ChannelWriter& writer, uint64_t bytes) {
    while (bytes > 0) {
        const RingRegion run = writer.WaitForRoom();
        if (run.size == 0) {
            return false;
        }
        const size_t count = std::min<uint64_t>(bytes, run.size);
        stream_.Fill(run.data, count);
        writer.Commit(count);
        bytes -= count;
    }
    return true;
}

}  // namespace tiv::soft_driver
