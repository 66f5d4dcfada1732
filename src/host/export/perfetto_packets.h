// Packets of a Perfetto trace.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/export/proto_writer.h"
#include "host/result/result_directory.h"

namespace tiv::host {

// What a counter counts; the numbers are the format's.
enum class CounterUnit : uint8_t { OTHER = 0, COUNT = 2, BYTES = 3 };

// A track to be told to the reader of the trace before anything on it.
struct TrackFacts {
    uint64_t uuid = 0;
    uint64_t parent = 0;  // 0: none
    std::string_view name;
};

// Puts packets together, each ready to be written: the frame of the trace is around it. A returned
// view is valid until the next call.
//
// What loses data in the readers of the format without a word, and is kept to here: every packet
// carries the id of its sequence; a track is declared before its events; a clock is named in a
// snapshot before it is used; a value is a finite number.
class PerfettoPackets {
 public:
    // The first packet. The trace's clock is the raw monotonic one; where a pair of readings is
    // known, it stands in it.
    std::string_view Clock(uint64_t rawNs, const std::optional<ClockPair>& pair);

    std::string_view Track(const TrackFacts& track);
    std::string_view ProcessTrack(const TrackFacts& track, uint32_t pid);
    std::string_view ThreadTrack(const TrackFacts& track, uint32_t pid, uint32_t threadId);
    // `unitName` is for CounterUnit::OTHER.
    std::string_view CounterTrack(const TrackFacts& track, CounterUnit unit,
                                  std::string_view unitName);

    std::string_view Value(uint64_t uuid, uint64_t timeNs, double value);
    std::string_view Value(uint64_t uuid, uint64_t timeNs, uint64_t value);
    std::string_view SliceBegin(uint64_t uuid, uint64_t timeNs, std::string_view name);
    std::string_view SliceEnd(uint64_t uuid, uint64_t timeNs);
    std::string_view Instant(uint64_t uuid, uint64_t timeNs, std::string_view name);

    // The first packet of a sequence of CPU profile samples, all of one event.
    std::string_view ProfileStart(uint32_t sequence, std::string_view event);
    // What a sequence's samples refer to by number from here on.
    struct Module {
        uint64_t number = 0;
        std::string_view path;
    };
    struct Function {
        uint64_t frame = 0;
        uint64_t module = 0;
        std::string_view name;
    };
    struct Stack {
        uint64_t number = 0;
        const std::vector<uint64_t>& frames;  // outermost first
    };
    std::string_view Names(uint32_t sequence, const std::vector<Module>& modules,
                           const std::vector<Function>& functions, const Stack& stack);
    struct Sample {
        uint64_t timeNs = 0;
        std::optional<uint32_t> core;
        uint32_t pid = 0;
        uint32_t threadId = 0;
        uint64_t stack = 0;
        bool inKernel = false;
        uint64_t periods = 0;  // summed up over the sequence
    };
    std::string_view ProfileSample(uint32_t sequence, const Sample& sample);

 private:
    void BeginPacket(uint32_t sequence);
    std::string_view EndPacket();
    std::string_view Descriptor();
    void BeginTrack(const TrackFacts& track);
    void BeginEvent(uint64_t uuid, uint64_t type);
    std::string_view EndEvent(uint64_t timeNs);

    ProtoMessage trace_;
    ProtoMessage packet_;
    ProtoMessage track_;
    ProtoMessage part_;
    ProtoMessage event_;
    ProtoMessage names_;
};

}  // namespace tiv::host
