// From samples to packets.
#include "host/export/perfetto_profile.h"

namespace tiv::host {

namespace {

constexpr size_t MAX_EVENTS = 64;
constexpr size_t MAX_THREADS = 1000000;
constexpr size_t MAX_STACK_BYTES = 16 << 20;
constexpr size_t MAX_MODULES = 65536;
constexpr uint32_t FIRST_SEQUENCE = 2;
constexpr std::string_view UNKNOWN = "[unknown]";
constexpr std::string_view KERNEL = "[kernel";
// Tells the uuids of threads from all others, which are hashes.
constexpr uint64_t THREAD_UUIDS = 0x7468000000000000;

bool IsKernel(const std::vector<StackFrame>& stack) {
    return !stack.empty() && stack.front().module.substr(0, KERNEL.size()) == KERNEL;
}

}  // namespace

PerfettoProfile::Sequence::Sequence(uint32_t number)
    : id(number),
      stacks([this](const NamedFrame& frame) { newFrames.push_back(frame); },
             [](const StackStep& /*step*/) {}, MAX_STACK_BYTES) {}

PerfettoProfile::Sequence* PerfettoProfile::SequenceOf(std::string_view event) {
    const auto known = sequences_.find(event);
    if (known != sequences_.end()) {
        return known->second.get();
    }
    if (sequences_.size() >= MAX_EVENTS) {
        return nullptr;
    }
    const auto id = static_cast<uint32_t>(FIRST_SEQUENCE + sequences_.size());
    const auto made = sequences_.emplace(event, std::make_unique<Sequence>(id)).first;
    events_.Write(packets_.ProfileStart(id, event));
    return made->second.get();
}

void PerfettoProfile::NameThread(const ProfileSampleRow& row) {
    const uint64_t thread = static_cast<uint64_t>(row.deviceId) << 32 | *row.threadId;
    if (threads_.size() < MAX_THREADS && threads_.insert(thread).second) {
        tracks_.Write(packets_.ThreadTrack({THREAD_UUIDS + thread, 0, row.command},
                                           row.pid.value_or(*row.threadId), *row.threadId));
    }
}

uint64_t PerfettoProfile::ModuleOf(Sequence& sequence, std::string_view path,
                                   std::vector<PerfettoPackets::Module>& fresh) {
    const auto known = sequence.modules.find(path);
    if (known != sequence.modules.end()) {
        return known->second;
    }
    const uint64_t number = sequence.modules.size() + 1;
    sequence.modules.emplace(path, number);
    fresh.push_back({number, path});
    return number;
}

void PerfettoProfile::TellNames(Sequence& sequence, uint64_t stack) {
    if (!sequence.told.insert(stack).second) {
        return;  // and so were its frames
    }
    std::vector<PerfettoPackets::Module> modules;
    std::vector<PerfettoPackets::Function> functions;
    for (const NamedFrame& frame : sequence.newFrames) {
        // Damage may name a module per frame; what is beyond the bound is told as unknown.
        const bool isKnown = !frame.module.empty() && sequence.modules.size() < MAX_MODULES;
        const uint64_t module = ModuleOf(sequence, isKnown ? frame.module : UNKNOWN, modules);
        functions.push_back({frame.frame, module, frame.symbol.empty() ? UNKNOWN : frame.symbol});
    }
    sequence.newFrames.clear();
    events_.Write(
        packets_.Names(sequence.id, modules, functions, {stack, sequence.stacks.Frames()}));
}

void PerfettoProfile::Add(const ProfileSampleRow& row) {
    Sequence* sequence = row.threadId.has_value() ? SequenceOf(row.event) : nullptr;
    if (sequence == nullptr) {
        ++leftOut_;
        return;
    }
    NameThread(row);
    const uint64_t forgotten = sequence->stacks.Forgotten();
    const uint64_t stack = sequence->stacks.NumberOf(row.stack);
    if (sequence->stacks.Forgotten() != forgotten) {
        sequence->told.clear();  // the numbers in it come no more
    }
    if (stack != 0) {
        TellNames(*sequence, stack);
    }
    sequence->periods += row.period;
    events_.Write(packets_.ProfileSample(
        sequence->id, {row.timeNs, row.core, row.pid.value_or(*row.threadId), *row.threadId, stack,
                       IsKernel(row.stack), sequence->periods}));
}

}  // namespace tiv::host
