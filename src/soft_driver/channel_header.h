// The first bytes that a started channel delivers.
#pragma once

#include <string>

namespace tiv::soft_driver {

struct ChannelSettings;
struct SourceDescription;

// Every start of a channel writes this once, so that a file of its bytes explains itself. All
// numbers are unsigned and little-endian.
//
//   0    4   magic 0x43564954: the letters "TIVC"
//   4    4   version, 1
//   8    4   bytes of this header, a multiple of 8; the source's bytes begin there
//   12   4   source: 1 perf, 2 counter, 3 replay
//   16   4   clock of the time stamps: 0 none, 4 the raw monotonic clock
//   20   4   period in milliseconds, 0 when the source has none
//   24   4   bytes of one record, 0 when there are no records of one size
//   28   4   channel id
//   32   32  channel name, filled up with zero bytes
//   64   4   number of event names
//   68   ..  the names, each with a zero byte behind it, then zero bytes up to the header's end
[[nodiscard]] std::string BuildChannelHeader(const ChannelSettings& channel,
                                             const SourceDescription& source);

}  // namespace tiv::soft_driver
