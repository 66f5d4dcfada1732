// Exports a result directory.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/export/exporter.h"
#include "host/result/result_reader.h"

namespace tiv::host {

enum class ExportFormat { CSV, SQLITE, PERFETTO, FOLDED };

// The formats' names on the command line, in the order of ExportFormat.
[[nodiscard]] const std::vector<std::string>& ExportFormatNames();
[[nodiscard]] std::optional<ExportFormat> ParseExportFormat(std::string_view name);

// Where an export of the result goes when nobody says: a file or a directory inside the result.
[[nodiscard]] std::string DefaultOutput(const std::string& directory, ExportFormat format);

[[nodiscard]] std::unique_ptr<Exporter> MakeExporter(ExportFormat format,
                                                     const std::string& output);

struct ExportReport {
    std::string error;                  // why there is no export; empty when there is one
    bool isNoResult = false;            // what was named is no result
    bool isWhole = false;               // the result is everything that was asked for
    bool cancelled = false;             // ended by the watch
    std::vector<std::string> problems;  // of the result
    std::vector<std::string> outputs;   // the files that were written
};

// What wants to know how an export goes. False from either ends it.
struct ExportWatch {
    OnReadProgress onRead;
    std::function<bool()> onFinish;  // over and over while indexes are made or parts are joined
};

// Reads the result at `directory` and writes it to `output`, replacing what an earlier export left
// there. What is written gets its name when it is whole; an export that fails or is cancelled
// leaves nothing. Blocks.
[[nodiscard]] ExportReport ExportResult(const std::string& directory, ExportFormat format,
                                        const std::string& output, const ExportWatch& watch = {});

}  // namespace tiv::host
