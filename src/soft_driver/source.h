// What puts bytes into a channel.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tiv::soft_driver {

class ChannelWriter;
struct ChannelSettings;

// The start record of prof_drv_start, copied: the caller's memory is valid during the call only.
struct StartRecord {
    uint32_t periodMs = 0;        // 0: the start names none
    std::vector<uint32_t> words;  // of the user data
};

// What a channel's header says about its source. See channel_header.h for the bytes.
struct SourceDescription {
    uint32_t clock = 0;        // the clock id of time stamps; 0: there are none
    uint32_t periodMs = 0;     // 0: not periodic
    uint32_t recordBytes = 0;  // 0: no records of one size
    std::vector<std::string> events;
};

// A source with a thread of its own. Prepare and Describe run on the thread that starts the
// channel, Run on the source's.
class Source {
 public:
    virtual ~Source() = default;

    // Takes what the start asks for. False with errno set, and a warning that says what to change.
    [[nodiscard]] virtual bool Prepare(const StartRecord& start) = 0;
    [[nodiscard]] virtual SourceDescription Describe() const = 0;
    // Produces until the source is dry or the writer tells that the channel was stopped.
    virtual void Run(ChannelWriter& writer) = 0;
    // Records that found no room; asked after Run has returned.
    [[nodiscard]] virtual uint64_t Dropped() const { return 0; }
};

// Null for the kinds that have no thread.
[[nodiscard]] std::unique_ptr<Source> MakeSource(const ChannelSettings& channel);

}  // namespace tiv::soft_driver
