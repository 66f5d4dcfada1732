// The first bytes that a started channel delivers.
#include "soft_driver/channel_header.h"

#include <endian.h>

#include <cstring>

#include "soft_driver/settings.h"
#include "soft_driver/source.h"

namespace tiv::soft_driver {
namespace {

constexpr uint32_t MAGIC = 0x43564954;
constexpr uint32_t VERSION = 1;
constexpr size_t NAME_BYTES = 32;
constexpr size_t LENGTH_OFFSET = 8;
constexpr size_t ALIGNMENT = 8;

void AppendNumber(std::string* bytes, uint32_t number) {
    const uint32_t wire = htole32(number);
    bytes->append(reinterpret_cast<const char*>(&wire), sizeof(wire));
}

}  // namespace

std::string BuildChannelHeader(const ChannelSettings& channel, const SourceDescription& source) {
    std::string header;
    AppendNumber(&header, MAGIC);
    AppendNumber(&header, VERSION);
    AppendNumber(&header, 0);  // the length, known at the end
    AppendNumber(&header, static_cast<uint32_t>(channel.source.kind));
    AppendNumber(&header, source.clock);
    AppendNumber(&header, source.periodMs);
    AppendNumber(&header, source.recordBytes);
    AppendNumber(&header, channel.id);
    std::string name = channel.name;
    name.resize(NAME_BYTES);
    header += name;
    AppendNumber(&header, static_cast<uint32_t>(source.events.size()));
    for (const std::string& event : source.events) {
        header.append(event.c_str(), event.size() + 1);
    }
    header.resize((header.size() + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT);
    const uint32_t length = htole32(static_cast<uint32_t>(header.size()));
    memcpy(header.data() + LENGTH_OFFSET, &length, sizeof(length));
    return header;
}

}  // namespace tiv::soft_driver
