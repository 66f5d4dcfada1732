// The bytes of a file: the source that reproduces what a card delivered.
#pragma once

#include <cstdint>

#include "soft_driver/file_descriptor.h"
#include "soft_driver/settings.h"
#include "soft_driver/source.h"

namespace tiv::soft_driver {

// Reads the file from its front into the ring, once or round and round, at a rate or as fast as
// the ring is read; a full ring makes it wait. An unreadable or empty file ends it.
class ReplaySource : public Source {
 public:
    explicit ReplaySource(const SourceSettings& settings) : settings_(settings) {}

    [[nodiscard]] bool Prepare(const StartRecord& start) override;
    [[nodiscard]] SourceDescription Describe() const override { return {}; }
    void Run(ChannelWriter& writer) override;

 private:
    [[nodiscard]] bool Produce(ChannelWriter& writer, uint64_t bytes);
    [[nodiscard]] int64_t ReadInto(char* data, size_t bytes);

    const SourceSettings settings_;
    FileDescriptor file_;
    uint64_t inRound_ = 0;  // bytes read since the file's front
};

}  // namespace tiv::soft_driver
