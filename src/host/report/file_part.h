// The files of a result on a page.
#pragma once

#include <cstdint>

#include "host/report/page_part.h"
#include "host/result/tables.h"

namespace tiv::host {

// Lists the files with what could be read of each. Of very many, those without problems are left
// out. One thread.
class FilePart : public PagePart {
 public:
    static constexpr size_t MOST_ROWS = 5000;

    void Take(const FileRow& row);

    void IncludeIn(PageGrid& /*grid*/) const override {}
    void Write(PageContext& context) override;

    [[nodiscard]] uint64_t Files() const { return files_; }
    [[nodiscard]] uint64_t Bytes() const { return bytes_; }
    [[nodiscard]] uint64_t UnreadableRecords() const { return unreadableRecords_; }
    [[nodiscard]] uint64_t UnreadableBytes() const { return unreadableBytes_; }

 private:
    nlohmann::ordered_json rows_ = nlohmann::ordered_json::array();
    uint64_t files_ = 0;
    uint64_t bytes_ = 0;
    uint64_t unreadableRecords_ = 0;
    uint64_t unreadableBytes_ = 0;
};

}  // namespace tiv::host
