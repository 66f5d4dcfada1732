// Field numbers of a Perfetto trace and what goes into them.
#include "host/export/perfetto_packets.h"

namespace tiv::host {

namespace {

constexpr uint32_t TRACE_PACKET = 1;

enum PacketField : uint32_t {
    PACKET_CLOCK_SNAPSHOT = 6,
    PACKET_TIMESTAMP = 8,
    PACKET_SEQUENCE = 10,
    PACKET_TRACK_EVENT = 11,
    PACKET_INTERNED_DATA = 12,
    PACKET_SEQUENCE_FLAGS = 13,
    PACKET_CLOCK = 58,
    PACKET_DEFAULTS = 59,
    PACKET_TRACK_DESCRIPTOR = 60,
    PACKET_PERF_SAMPLE = 66,
};

enum SnapshotField : uint32_t { SNAPSHOT_CLOCK = 1, SNAPSHOT_PRIMARY = 2 };
enum ClockField : uint32_t { CLOCK_ID = 1, CLOCK_TIME = 2 };
constexpr uint64_t REALTIME = 1;
constexpr uint64_t MONOTONIC_RAW = 5;

enum TrackField : uint32_t {
    TRACK_UUID = 1,
    TRACK_NAME = 2,
    TRACK_PROCESS = 3,
    TRACK_THREAD = 4,
    TRACK_PARENT = 5,
    TRACK_COUNTER = 8,
};
enum ProcessField : uint32_t { PROCESS_PID = 1, PROCESS_NAME = 6 };
enum ThreadField : uint32_t { THREAD_PID = 1, THREAD_TID = 2, THREAD_NAME = 5 };
enum CounterField : uint32_t { COUNTER_UNIT = 3, COUNTER_UNIT_NAME = 6 };

enum EventField : uint32_t {
    EVENT_TYPE = 9,
    EVENT_TRACK = 11,
    EVENT_NAME = 23,
    EVENT_INTEGER = 30,
    EVENT_REAL = 44,
};
constexpr uint64_t TYPE_BEGIN = 1;
constexpr uint64_t TYPE_END = 2;
constexpr uint64_t TYPE_INSTANT = 3;
constexpr uint64_t TYPE_COUNTER = 4;

constexpr uint64_t STATE_CLEARED = 1;
constexpr uint64_t NEEDS_STATE = 2;

constexpr uint32_t DEFAULTS_PERF_SAMPLE = 12;
constexpr uint32_t PERF_DEFAULTS_TIMEBASE = 1;
constexpr uint32_t TIMEBASE_NAME = 10;

enum NamesField : uint32_t {
    NAMES_FUNCTION = 5,
    NAMES_FRAME = 6,
    NAMES_STACK = 7,
    NAMES_MODULE_PATH = 17,
    NAMES_MODULE = 19,
};
enum TextField : uint32_t { TEXT_NUMBER = 1, TEXT_BYTES = 2 };
enum ModuleField : uint32_t { MODULE_NUMBER = 1, MODULE_PATH = 7 };
enum FrameField : uint32_t { FRAME_NUMBER = 1, FRAME_FUNCTION = 2, FRAME_MODULE = 3 };
enum StackField : uint32_t { STACK_NUMBER = 1, STACK_FRAME = 2 };

enum SampleField : uint32_t {
    SAMPLE_CORE = 1,
    SAMPLE_PID = 2,
    SAMPLE_THREAD = 3,
    SAMPLE_STACK = 4,
    SAMPLE_MODE = 5,
    SAMPLE_TIMEBASE_COUNT = 6,
};
constexpr uint64_t MODE_KERNEL = 1;
constexpr uint64_t MODE_USER = 2;

// The sequence of everything but profile samples.
constexpr uint32_t MAIN_SEQUENCE = 1;

}  // namespace

void PerfettoPackets::BeginPacket(uint32_t sequence) {
    packet_.Clear();
    packet_.Number(PACKET_SEQUENCE, sequence);
}

std::string_view PerfettoPackets::EndPacket() {
    trace_.Clear();
    trace_.Message(TRACE_PACKET, packet_);
    return trace_.Bytes();
}

std::string_view PerfettoPackets::Clock(uint64_t rawNs, const std::optional<ClockPair>& pair) {
    BeginPacket(MAIN_SEQUENCE);
    event_.Clear();
    const auto add = [this](uint64_t clock, uint64_t timeNs) {
        part_.Clear();
        part_.Number(CLOCK_ID, clock);
        part_.Number(CLOCK_TIME, timeNs);
        event_.Message(SNAPSHOT_CLOCK, part_);
    };
    add(MONOTONIC_RAW, pair.has_value() ? pair->rawNs : rawNs);
    if (pair.has_value()) {
        add(REALTIME, pair->wallNs);
    }
    event_.Number(SNAPSHOT_PRIMARY, MONOTONIC_RAW);
    packet_.Message(PACKET_CLOCK_SNAPSHOT, event_);
    return EndPacket();
}

void PerfettoPackets::BeginTrack(const TrackFacts& track) {
    track_.Clear();
    track_.Number(TRACK_UUID, track.uuid);
    if (track.parent != 0) {
        track_.Number(TRACK_PARENT, track.parent);
    }
    part_.Clear();
}

std::string_view PerfettoPackets::Descriptor() {
    BeginPacket(MAIN_SEQUENCE);
    packet_.Message(PACKET_TRACK_DESCRIPTOR, track_);
    return EndPacket();
}

std::string_view PerfettoPackets::Track(const TrackFacts& track) {
    BeginTrack(track);
    track_.Text(TRACK_NAME, track.name);
    return Descriptor();
}

std::string_view PerfettoPackets::ProcessTrack(const TrackFacts& track, uint32_t pid) {
    BeginTrack(track);
    part_.Number(PROCESS_PID, pid);
    part_.Text(PROCESS_NAME, track.name);
    track_.Message(TRACK_PROCESS, part_);
    return Descriptor();
}

std::string_view PerfettoPackets::ThreadTrack(const TrackFacts& track, uint32_t pid,
                                              uint32_t threadId) {
    BeginTrack(track);
    part_.Number(THREAD_PID, pid);
    part_.Number(THREAD_TID, threadId);
    part_.Text(THREAD_NAME, track.name);
    track_.Message(TRACK_THREAD, part_);
    return Descriptor();
}

std::string_view PerfettoPackets::CounterTrack(const TrackFacts& track, CounterUnit unit,
                                               std::string_view unitName) {
    BeginTrack(track);
    track_.Text(TRACK_NAME, track.name);
    if (unit == CounterUnit::OTHER) {
        part_.Text(COUNTER_UNIT_NAME, unitName);
    } else {
        part_.Number(COUNTER_UNIT, static_cast<uint64_t>(unit));
    }
    track_.Message(TRACK_COUNTER, part_);
    return Descriptor();
}

void PerfettoPackets::BeginEvent(uint64_t uuid, uint64_t type) {
    event_.Clear();
    event_.Number(EVENT_TYPE, type);
    event_.Number(EVENT_TRACK, uuid);
}

std::string_view PerfettoPackets::EndEvent(uint64_t timeNs) {
    BeginPacket(MAIN_SEQUENCE);
    packet_.Number(PACKET_TIMESTAMP, timeNs);
    packet_.Number(PACKET_CLOCK, MONOTONIC_RAW);
    packet_.Message(PACKET_TRACK_EVENT, event_);
    return EndPacket();
}

std::string_view PerfettoPackets::Value(uint64_t uuid, uint64_t timeNs, double value) {
    BeginEvent(uuid, TYPE_COUNTER);
    event_.Real(EVENT_REAL, value);
    return EndEvent(timeNs);
}

std::string_view PerfettoPackets::Value(uint64_t uuid, uint64_t timeNs, uint64_t value) {
    BeginEvent(uuid, TYPE_COUNTER);
    event_.Number(EVENT_INTEGER, value);
    return EndEvent(timeNs);
}

std::string_view PerfettoPackets::SliceBegin(uint64_t uuid, uint64_t timeNs,
                                             std::string_view name) {
    BeginEvent(uuid, TYPE_BEGIN);
    event_.Text(EVENT_NAME, name);
    return EndEvent(timeNs);
}

std::string_view PerfettoPackets::SliceEnd(uint64_t uuid, uint64_t timeNs) {
    BeginEvent(uuid, TYPE_END);
    return EndEvent(timeNs);
}

std::string_view PerfettoPackets::Instant(uint64_t uuid, uint64_t timeNs, std::string_view name) {
    BeginEvent(uuid, TYPE_INSTANT);
    event_.Text(EVENT_NAME, name);
    return EndEvent(timeNs);
}

std::string_view PerfettoPackets::ProfileStart(uint32_t sequence, std::string_view event) {
    part_.Clear();
    part_.Text(TIMEBASE_NAME, event);
    event_.Clear();
    event_.Message(PERF_DEFAULTS_TIMEBASE, part_);
    names_.Clear();
    names_.Message(DEFAULTS_PERF_SAMPLE, event_);
    BeginPacket(sequence);
    packet_.Number(PACKET_SEQUENCE_FLAGS, STATE_CLEARED);
    packet_.Message(PACKET_DEFAULTS, names_);
    return EndPacket();
}

std::string_view PerfettoPackets::Names(uint32_t sequence, const std::vector<Module>& modules,
                                        const std::vector<Function>& functions,
                                        const Stack& stack) {
    names_.Clear();
    const auto text = [this](uint32_t field, uint64_t number, std::string_view bytes) {
        part_.Clear();
        part_.Number(TEXT_NUMBER, number);
        part_.Text(TEXT_BYTES, bytes);
        names_.Message(field, part_);
    };
    for (const Module& module : modules) {
        text(NAMES_MODULE_PATH, module.number, module.path);
        part_.Clear();
        part_.Number(MODULE_NUMBER, module.number);
        part_.Number(MODULE_PATH, module.number);
        names_.Message(NAMES_MODULE, part_);
    }
    for (const Function& function : functions) {
        text(NAMES_FUNCTION, function.frame, function.name);
        part_.Clear();
        part_.Number(FRAME_NUMBER, function.frame);
        part_.Number(FRAME_FUNCTION, function.frame);
        part_.Number(FRAME_MODULE, function.module);
        names_.Message(NAMES_FRAME, part_);
    }
    part_.Clear();
    part_.Number(STACK_NUMBER, stack.number);
    for (const uint64_t frame : stack.frames) {
        part_.Number(STACK_FRAME, frame);
    }
    names_.Message(NAMES_STACK, part_);
    BeginPacket(sequence);
    packet_.Number(PACKET_SEQUENCE_FLAGS, NEEDS_STATE);
    packet_.Message(PACKET_INTERNED_DATA, names_);
    return EndPacket();
}

std::string_view PerfettoPackets::ProfileSample(uint32_t sequence, const Sample& sample) {
    event_.Clear();
    if (sample.core.has_value()) {
        event_.Number(SAMPLE_CORE, *sample.core);
    }
    event_.Number(SAMPLE_PID, sample.pid);
    event_.Number(SAMPLE_THREAD, sample.threadId);
    if (sample.stack != 0) {
        event_.Number(SAMPLE_STACK, sample.stack);
    }
    event_.Number(SAMPLE_MODE, sample.inKernel ? MODE_KERNEL : MODE_USER);
    event_.Number(SAMPLE_TIMEBASE_COUNT, sample.periods);
    BeginPacket(sequence);
    packet_.Number(PACKET_TIMESTAMP, sample.timeNs);
    packet_.Number(PACKET_CLOCK, MONOTONIC_RAW);
    packet_.Number(PACKET_SEQUENCE_FLAGS, NEEDS_STATE);
    packet_.Message(PACKET_PERF_SAMPLE, event_);
    return EndPacket();
}

}  // namespace tiv::host
