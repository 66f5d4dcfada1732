// Rising numbers: the source that proves order and completeness.
#pragma once

#include <cstddef>
#include <cstdint>

#include "soft_driver/settings.h"
#include "soft_driver/source.h"

namespace tiv::soft_driver {

// The byte stream of the little-endian 64-bit numbers 0, 1, 2 ... , cut anywhere. One thread.
class CounterStream {
 public:
    // The next `bytes` of the stream.
    void Fill(char* out, size_t bytes);

 private:
    uint64_t position_ = 0;  // bytes handed out
};

// The stream at a rate; a full ring makes it wait. Without a rate the numbers are made by the
// read itself, and this class is not used.
class CounterSource : public Source {
 public:
    explicit CounterSource(const SourceSettings& settings) : settings_(settings) {}

    [[nodiscard]] bool Prepare(const StartRecord& start) override;
    [[nodiscard]] SourceDescription Describe() const override;
    void Run(ChannelWriter& writer) override;

 private:
    [[nodiscard]] bool Produce(ChannelWriter& writer, uint64_t bytes);

    const SourceSettings settings_;
    CounterStream stream_;
};

}  // namespace tiv::soft_driver
