// Reads the samples of the system's memory.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/result/sample_file_parser.h"

namespace tiv::host {

// The lines that memory readings of one device have shown so far.
class MemoryKeys {
 public:
    // The key of a line; gives a new one to the visitor. No value when there are too many.
    std::optional<uint32_t> KeyOf(std::string_view name, bool isBytes, const ParseContext& context);

 private:
    std::map<std::pair<std::string, bool>, uint32_t, std::less<>> keys_;
};

// A reading is /proc/meminfo: lines "<name>: <number> kB" or "<name>: <number>".
class MemoryParser : public SampleFileParser {
 public:
    // `keys` outlives the parser.
    MemoryParser(const ParseContext& context, MemoryKeys& keys)
        : SampleFileParser(context), context_(context), keys_(keys) {}

 private:
    bool Parse(const SampleRecord& record) override;
    bool ParseLine(std::string_view line, MemoryRow& row);

    const ParseContext context_;
    MemoryKeys& keys_;
    std::vector<MemoryRow> rows_;  // of the record in hand
};

}  // namespace tiv::host
