// Checks the bytes of a counter channel, number by number, as they arrive.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tiv::test {

// Takes the stream of one or more starts of a channel, cut anywhere: each start is a header and
// then the little-endian numbers 0, 1, 2 ... Nothing is kept but the counts. One thread.
class CounterCheck {
 public:
    // One start of the channel.
    struct Run {
        uint64_t headerBytes = 0;
        uint64_t numbers = 0;
        [[nodiscard]] uint64_t Bytes() const { return headerBytes + numbers * sizeof(uint64_t); }
    };

    // After the first wrong byte nothing more is looked at.
    void Feed(std::string_view bytes);

    // What was wrong; empty as long as nothing is.
    [[nodiscard]] const std::string& Error() const { return error_; }
    [[nodiscard]] const std::vector<Run>& Runs() const { return runs_; }
    // Bytes of an unfinished number or header at the end.
    [[nodiscard]] bool EndsWhole() const { return carry_.empty() && headerLeft_ == 0; }

 private:
    enum class State { NUMBERS, HEADER_LENGTH, HEADER_REST };

    void FeedWords(const char* bytes, size_t words);
    [[nodiscard]] size_t MatchingBlocks(const char* bytes, size_t words) const;
    void TakeWord(uint64_t word);
    void TakeHeaderLength(uint64_t word);
    void Fail(const std::string& what, uint64_t word);

    State state_ = State::NUMBERS;
    std::string carry_;        // first bytes of a word
    uint64_t headerLeft_ = 0;  // bytes of the header to come
    std::vector<Run> runs_;
    std::string error_;
};

}  // namespace tiv::test
