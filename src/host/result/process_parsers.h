// Read the samples of one process's CPU times and memory.
#pragma once

#include <optional>

#include "host/result/process_lives.h"
#include "host/result/sample_file_parser.h"

namespace tiv::host {

// A reading is /proc/<pid>/stat, a line "ProcessName:<name>" and the line "cpu ..." of the whole
// system, which may be missing. The name in stat is the process's own text of any bytes in
// parentheses, line ends included; it is found from behind, since only numbers follow it.
class ProcessCpuParser : public SampleFileParser {
 public:
    // `lives` outlives the parser.
    ProcessCpuParser(const ParseContext& context, ProcessLives& lives, uint64_t ticksPerSecond)
        : SampleFileParser(context), lives_(lives), ticksPerSecond_(ticksPerSecond) {}

 private:
    bool Parse(const SampleRecord& record) override;
    void AddUse(ProcessCpuRow& row);

    ProcessLives& lives_;
    const uint64_t ticksPerSecond_;
    std::optional<ProcessCpuRow> previous_;
};

// A reading is /proc/<pid>/statm, in pages, and a line "ProcessName:<name>".
class ProcessMemoryParser : public SampleFileParser {
 public:
    // `lives` outlives the parser and has seen the CPU file.
    ProcessMemoryParser(const ParseContext& context, ProcessLives& lives, uint64_t pageBytes)
        : SampleFileParser(context), lives_(lives), pageBytes_(pageBytes) {}

 private:
    bool Parse(const SampleRecord& record) override;
    bool ParseSizes(std::string_view line, ProcessMemoryRow& row) const;

    ProcessLives& lives_;
    const uint64_t pageBytes_;
};

}  // namespace tiv::host
