// Cells as CSV.
#include "host/export/csv_exporter.h"

#include <fmt/format.h>

#include <iterator>

namespace tiv::host {

void AppendCsvField(std::string_view text, std::string& out) {
    const bool isPlain = !text.empty() && text.find_first_of("\",\n\r") == std::string_view::npos &&
                         text.front() != ' ' && text.back() != ' ';
    if (isPlain) {
        out += text;
        return;
    }
    out += '"';
    for (const char c : text) {
        out += c;
        if (c == '"') {
            out += '"';
        }
    }
    out += '"';
}

CsvExporter::CsvExporter(std::string directory)
    : RowExporter(static_cast<CellSink&>(*this)), directory_(std::move(directory)) {}

bool CsvExporter::Open() {
    error_ = directory_.Make();
    if (!error_.empty()) {
        return false;
    }
    for (const TableSpec& spec : TableSpecs()) {
        files_.push_back(
            std::make_unique<OutputFile>(fmt::format("{}/{}.csv", directory_.Path(), spec.name)));
        if (!files_.back()->Open()) {
            return false;
        }
        std::string names;
        for (const ColumnSpec& column : spec.columns) {
            names.append(names.empty() ? "" : ",").append(column.name);
        }
        files_.back()->Write(names + "\n");
    }
    return true;
}

std::string CsvExporter::Error() const {
    for (const auto& file : files_) {
        if (!file->Error().empty()) {
            return file->Error();
        }
    }
    return error_;
}

bool CsvExporter::Commit() {
    if (!Error().empty()) {
        return false;
    }
    for (const auto& file : files_) {
        if (!file->Commit()) {
            return false;
        }
    }
    return true;
}

std::vector<std::string> CsvExporter::Outputs() const {
    std::vector<std::string> paths;
    for (const auto& file : files_) {
        paths.push_back(file->Path());
    }
    return paths;
}

void CsvExporter::BeginRow(Table table) {
    file_ = files_[static_cast<size_t>(table)].get();
    line_.clear();
    isFirst_ = true;
}

void CsvExporter::Separate() {
    if (!isFirst_) {
        line_ += ',';
    }
    isFirst_ = false;
}

void CsvExporter::Integer(uint64_t value) {
    Separate();
    fmt::format_to(std::back_inserter(line_), "{}", value);
}

void CsvExporter::Real(double value) {
    Separate();
    fmt::format_to(std::back_inserter(line_), "{}", value);
}

void CsvExporter::Text(std::string_view text) {
    Separate();
    AppendCsvField(text, line_);
}

void CsvExporter::Absent() { Separate(); }

void CsvExporter::Key(uint64_t /*number*/, std::string_view text) { Text(text); }

void CsvExporter::EndRow() {
    line_ += '\n';
    file_->Write(line_);
}

}  // namespace tiv::host
