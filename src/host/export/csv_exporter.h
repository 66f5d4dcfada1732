// A directory of CSV files, one for each table.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/export/output_directory.h"
#include "host/export/row_exporter.h"
#include "host/output_file.h"

namespace tiv::host {

// Appends `text` as one field: in quotes where it holds a quote, a comma, a line end or a blank at
// its rim, or is empty; quotes in it are doubled.
void AppendCsvField(std::string_view text, std::string& out);

// Writes <directory>/<table>.csv, RFC 4180 with line ends of "\n" and the columns' names in the
// first line. What is absent is an empty field; an empty text is "". In place of the number of a
// memory key or of a stack stands its text.
class CsvExporter : private CellSink, public RowExporter {
 public:
    // `directory` is made when it is not there; its parent exists.
    explicit CsvExporter(std::string directory);

    bool Open() override;
    bool Commit() override;
    std::string Error() const override;
    std::vector<std::string> Outputs() const override;

 private:
    void BeginRow(Table table) override;
    void Integer(uint64_t value) override;
    void Real(double value) override;
    void Text(std::string_view text) override;
    void Absent() override;
    void Key(uint64_t number, std::string_view text) override;
    void EndRow() override;
    void Separate();

    OutputDirectory directory_;  // outlives its files
    std::string error_;
    std::vector<std::unique_ptr<OutputFile>> files_;  // in the order of Table
    OutputFile* file_ = nullptr;                      // of the row in hand
    std::string line_;
    bool isFirst_ = true;
};

}  // namespace tiv::host
