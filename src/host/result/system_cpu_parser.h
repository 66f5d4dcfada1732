// Reads the samples of the system's CPU times.
#pragma once

#include <unordered_map>
#include <vector>

#include "host/result/sample_file_parser.h"

namespace tiv::host {

// A reading is the front of /proc/stat: a line "cpu <ticks> ..." for all cores, one "cpu<n> ..."
// for each that is online, the states in the order of CpuState. The shares of an interval are made
// from two readings of the same core, however many records lie between them.
class SystemCpuParser : public SampleFileParser {
 public:
    using SampleFileParser::SampleFileParser;

 private:
    struct Reading {
        uint64_t timeNs;
        uint64_t ticks[CPU_STATE_COUNT];
    };

    bool Parse(const SampleRecord& record) override;
    bool ParseLine(std::string_view line, SystemCpuRow& row) const;
    void AddUse(SystemCpuRow& row);

    std::unordered_map<int32_t, Reading> previous_;  // by core
    std::vector<SystemCpuRow> rows_;                 // of the record in hand
};

}  // namespace tiv::host
