// The stacks of the CPU profile in folded form, for flame graphs.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/export/exporter.h"
#include "host/export/output_directory.h"
#include "host/output_file.h"

namespace tiv::host {

// Writes <directory>/<event>.folded for each event that was sampled: lines of
//
//   <command>;<outermost frame>;...;<innermost frame> <samples>
//
// The counts of equal lines add up: there is one line for a stack as long as all stacks fit into a
// bounded memory, more in a very large profile. What is missing from the result stands in front in
// lines that begin with "#", which flame graph tools pass over.
class FoldedExporter : public Exporter {
 public:
    // `directory` is made when it is not there; its parent exists.
    explicit FoldedExporter(std::string directory, size_t maxBytes = MAX_BYTES)
        : directory_(std::move(directory)), maxBytes_(maxBytes) {}

    bool Open() override;
    bool Commit() override;
    std::string Error() const override;
    std::vector<std::string> Outputs() const override;

    void OnBegin(const ResultDirectory& result) override { result_ = &result; }
    void OnProfileSample(const ProfileSampleRow& row) override;
    void OnEnd(const ReadOutcome& outcome) override;

 private:
    static constexpr size_t MAX_BYTES = 64 << 20;

    // Counts go to a scratch file when the memory is full; the file itself begins with what is
    // known only at the end.
    struct Event {
        explicit Event(const std::string& path) : file(path), scratch(path + ".part") {}
        std::unordered_map<std::string, uint64_t> counts;
        OutputFile file;
        OutputFile scratch;
    };

    Event* EventOf(std::string_view name);
    void Flush(Event& event);

    OutputDirectory directory_;  // outlives its files
    const size_t maxBytes_;
    const ResultDirectory* result_ = nullptr;
    std::string error_;
    std::map<std::string, std::unique_ptr<Event>, std::less<>> events_;
    uint64_t samplesOfMoreEvents_ = 0;
    size_t bytes_ = 0;
    std::string key_;
};

}  // namespace tiv::host
