// What the readers of the /proc samplers' files have in common.
#pragma once

#include "host/result/file_parser.h"
#include "host/result/number_text.h"
#include "host/result/record_reader.h"

namespace tiv::host {

// Takes the file apart into records and counts those whose reading is no such reading.
class SampleFileParser : public FileParser {
 public:
    explicit SampleFileParser(const ParseContext& context)
        : FileParser(context), reader_([this](const SampleRecord& record) { Take(record); }) {}

    void Feed(std::string_view bytes) override { reader_.Feed(bytes); }
    void Finish() override { reader_.Finish(); }

    [[nodiscard]] uint64_t UnreadableRecords() const override {
        return FileParser::UnreadableRecords() + reader_.Gaps();
    }
    [[nodiscard]] uint64_t UnreadableBytes() const override {
        return FileParser::UnreadableBytes() + reader_.UnreadableBytes();
    }

 protected:
    // Gives the rows of a record to the visitor. False when it is none of this kind; then no
    // reading was given.
    [[nodiscard]] virtual bool Parse(const SampleRecord& record) = 0;

 private:
    void Take(const SampleRecord& record) {
        if (record.timeNs > LARGEST_NUMBER || !Parse(record)) {
            CountUnreadable(record.data.size());
            return;
        }
        Saw(record.timeNs);
        CountRecord();
    }

    RecordReader reader_;
};

}  // namespace tiv::host
