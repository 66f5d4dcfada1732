// Writes the report page of a result.
#pragma once

#include <string>
#include <string_view>

#include "host/result/result_directory.h"
#include "host/result/result_reader.h"

namespace tiv::host {

// The whole page around encoded data: one HTML text that needs nothing else and asks for nothing
// else. Its content security policy allows the page's own two scripts and its style by their
// hashes, and nothing besides.
[[nodiscard]] std::string MakePage(std::string_view encodedData);

// What became of a report.
struct ReportOutcome {
    std::string error;  // why there is no page; empty when it is written
    bool cancelled = false;
    ReadOutcome reading;
};

// Reads the result once and writes its page to `path`, through a temporary file beside it, so that
// a page is whole or not there. Blocks. Throws std::bad_alloc when memory is short.
[[nodiscard]] ReportOutcome WriteReport(const ResultDirectory& result, const std::string& path,
                                        const OnReadProgress& onProgress = {});

}  // namespace tiv::host
