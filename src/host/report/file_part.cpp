// The section of the files.
#include "host/report/file_part.h"

#include "host/report/page_text.h"

namespace tiv::host {

namespace {

using nlohmann::ordered_json;

}  // namespace

void FilePart::Take(const FileRow& row) {
    ++files_;
    bytes_ += row.bytes;
    unreadableRecords_ += row.unreadableRecords;
    unreadableBytes_ += row.unreadableBytes;
    const bool flawless =
        row.unreadableRecords == 0 && row.unreadableBytes == 0 && row.problem.empty();
    if (rows_.size() >= (flawless ? MOST_ROWS : 2 * MOST_ROWS)) {
        return;
    }
    ordered_json line = ordered_json::array();
    line.push_back(PageText(row.name));
    line.push_back(row.deviceId);
    line.push_back(FileKindName(row.kind));
    line.push_back(row.bytes);
    line.push_back(row.kind == FileKind::OTHER ? ordered_json() : ordered_json(row.records));
    line.push_back(row.unreadableRecords);
    line.push_back(row.unreadableBytes);
    line.push_back(PageText(row.problem));
    rows_.push_back(std::move(line));
}

void FilePart::Write(PageContext& context) {
    const uint64_t left = files_ - rows_.size();
    context.sections.push_back(
        {{"kind", "table"},
         {"id", "files"},
         {"title", "Files"},
         {"link", "files"},
         {"subtitle", "of the result, as they were read"},
         {"sort", 3},
         {"columns",
          {{{"name", "file"}, {"unit", "text"}},
           {{"name", "device"}, {"unit", "plain"}},
           {{"name", "holds"}, {"unit", "text"}},
           {{"name", "size"}, {"unit", "bytes"}},
           {{"name", "records"}, {"unit", "count"}},
           {{"name", "unreadable records"}, {"unit", "count"}},
           {{"name", "unreadable bytes"}, {"unit", "bytes"}},
           {{"name", "problem"}, {"unit", "text"}}}},
         {"note", left == 0 ? "" : std::to_string(left) + " more files are not listed here."},
         {"rows", rows_}});
}

}  // namespace tiv::host
