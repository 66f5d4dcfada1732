// The tables of an export: their names and columns.
#pragma once

#include <cstdint>
#include <vector>

namespace tiv::host {

enum class CellType { INTEGER, REAL, TEXT };

struct ColumnSpec {
    const char* name;
    CellType type;
};

struct TableSpec {
    const char* name;
    std::vector<ColumnSpec> columns;
    bool firstIsKey;  // the first column names the row
};

// Places in the list of tables.
enum class Table : uint8_t {
    RESULT,
    PROBLEM,
    REPLAY,
    DEVICE,
    FILE,
    CHUNK,
    SYSTEM_CPU,
    MEMORY_KEY,
    MEMORY,
    PROCESS,
    PROCESS_CPU,
    PROCESS_MEMORY,
    PROFILE_FRAME,
    PROFILE_STACK,
    PROFILE_SAMPLE,
    CHANNEL,
    CHANNEL_EVENT,
    CHANNEL_COUNT,
    CHANNEL_LOSS,
    CHANNEL_RUN,
};

// All of them, in the order of Table. docs/result_format.md tells what each column means.
[[nodiscard]] const std::vector<TableSpec>& TableSpecs();

}  // namespace tiv::host
