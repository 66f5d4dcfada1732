// Reads when each chunk of a device came.
#pragma once

#include <string>

#include "host/result/file_parser.h"

namespace tiv::host {

// Lines "<received_ns>,<bytes>,<file>" behind a head line. The times are of the collecting machine
// and no part of the span of the device's readings.
class ChunkTimesParser : public FileParser {
 public:
    // A longer line is unreadable.
    static constexpr size_t MAX_LINE_BYTES = 64 << 10;

    using FileParser::FileParser;

    void Feed(std::string_view bytes) override;
    void Finish() override;

 private:
    void TakeWhole(std::string_view line);

    std::string line_;      // the beginning of one
    uint64_t skipped_ = 0;  // bytes of a line that is too long
    bool isAtHead_ = true;
};

}  // namespace tiv::host
