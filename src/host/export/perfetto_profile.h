// The samples of the CPU profile in a Perfetto trace.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "host/export/perfetto_packets.h"
#include "host/export/stack_table.h"
#include "host/output_file.h"

namespace tiv::host {

// Writes samples to a file of packets, one sequence for each event, with the names that they refer
// to in front of the first sample that does.
//
// The recorder tells threads and not their processes, and the format wants both: a thread stands as
// a process of its own number.
class PerfettoProfile {
 public:
    // `tracks` takes the threads, `events` the samples; both outlive this object.
    PerfettoProfile(PerfettoPackets& packets, OutputFile& tracks, OutputFile& events)
        : packets_(packets), tracks_(tracks), events_(events) {}

    void Add(const ProfileSampleRow& row);

    // Samples that name no thread or belong to more events than a trace takes.
    [[nodiscard]] uint64_t LeftOut() const { return leftOut_; }

 private:
    struct Sequence {
        explicit Sequence(uint32_t number);
        const uint32_t id;
        uint64_t periods = 0;
        std::vector<NamedFrame> newFrames;  // of the stack in hand
        std::map<std::string, uint64_t, std::less<>> modules;
        std::unordered_set<uint64_t> told;  // stacks
        StackTable stacks;
    };

    Sequence* SequenceOf(std::string_view event);
    void NameThread(const ProfileSampleRow& row);
    void TellNames(Sequence& sequence, uint64_t stack);
    uint64_t ModuleOf(Sequence& sequence, std::string_view path,
                      std::vector<PerfettoPackets::Module>& fresh);

    PerfettoPackets& packets_;
    OutputFile& tracks_;
    OutputFile& events_;
    std::map<std::string, std::unique_ptr<Sequence>, std::less<>> sequences_;
    std::unordered_set<uint64_t> threads_;
    uint64_t leftOut_ = 0;
};

}  // namespace tiv::host
