// From a result directory to an export.
#include "host/export/export_result.h"

#include "host/export/csv_exporter.h"
#include "host/export/folded_exporter.h"
#include "host/export/perfetto_exporter.h"
#include "host/export/sqlite_exporter.h"

namespace tiv::host {

const std::vector<std::string>& ExportFormatNames() {
    static const std::vector<std::string> names = {"csv", "sqlite", "perfetto", "folded"};
    return names;
}

std::optional<ExportFormat> ParseExportFormat(std::string_view name) {
    const std::vector<std::string>& names = ExportFormatNames();
    for (size_t i = 0; i < names.size(); ++i) {
        if (names[i] == name) {
            return static_cast<ExportFormat>(i);
        }
    }
    return std::nullopt;
}

std::string DefaultOutput(const std::string& directory, ExportFormat format) {
    switch (format) {
        case ExportFormat::CSV:
            return directory + "/csv";
        case ExportFormat::SQLITE:
            return directory + "/result.sqlite";
        case ExportFormat::PERFETTO:
            return directory + "/timeline.pftrace.gz";
        case ExportFormat::FOLDED:
            break;
    }
    return directory + "/folded";
}

std::unique_ptr<Exporter> MakeExporter(ExportFormat format, const std::string& output) {
    switch (format) {
        case ExportFormat::CSV:
            return std::make_unique<CsvExporter>(output);
        case ExportFormat::SQLITE:
            return std::make_unique<SqliteExporter>(output);
        case ExportFormat::PERFETTO:
            return std::make_unique<PerfettoExporter>(output);
        case ExportFormat::FOLDED:
            break;
    }
    return std::make_unique<FoldedExporter>(output);
}

namespace {

std::string WriteError(const Exporter& exporter) {
    return exporter.Error() + "; choose another place with --output";
}

}  // namespace

ExportReport ExportResult(const std::string& directory, ExportFormat format,
                          const std::string& output, const ExportWatch& watch) {
    ExportReport report;
    const auto result = OpenResult(directory, report.error);
    if (!result.has_value()) {
        report.isNoResult = true;
        return report;
    }
    const std::unique_ptr<Exporter> exporter = MakeExporter(format, output);
    exporter->SetPulse([&] {
        report.cancelled = report.cancelled || (watch.onFinish && !watch.onFinish());
        return !report.cancelled;
    });
    if (!exporter->Open()) {
        report.error = WriteError(*exporter);
        return report;
    }
    const ReadOutcome outcome =
        ResultReader(*result, *exporter).Read([&](const ReadProgress& progress) {
            report.cancelled = watch.onRead && !watch.onRead(progress);
            return !report.cancelled && exporter->Error().empty();
        });
    report.isWhole = IsWhole(*result, outcome);
    report.problems = outcome.problems;
    const bool committed = !report.cancelled && exporter->Commit();
    if (committed) {
        report.outputs = exporter->Outputs();
    } else if (!report.cancelled) {
        report.error = WriteError(*exporter);
    }
    return report;
}

}  // namespace tiv::host
