// Checking of a counter channel's bytes.
#include "support/counter_check.h"

#include <endian.h>

#include <algorithm>
#include <cstring>

namespace tiv::test {
namespace {

constexpr size_t WORD = sizeof(uint64_t);
constexpr size_t BLOCK_WORDS = 512;
constexpr uint64_t HEADER_START = 0x0000000143564954;  // magic, version 1
constexpr uint64_t COUNTER_SOURCE = 2;
constexpr uint64_t LEAST_HEADER = 72;

uint64_t LoadWord(const char* at) {
    uint64_t word = 0;
    memcpy(&word, at, WORD);
    return le64toh(word);
}

}  // namespace

void CounterCheck::Feed(std::string_view bytes) {
    if (!carry_.empty()) {
        const size_t part = std::min(WORD - carry_.size(), bytes.size());
        carry_.append(bytes.substr(0, part));
        bytes.remove_prefix(part);
        if (carry_.size() < WORD) {
            return;
        }
        FeedWords(carry_.data(), 1);
        carry_.clear();
    }
    FeedWords(bytes.data(), bytes.size() / WORD);
    carry_.assign(bytes.substr(bytes.size() / WORD * WORD));
}

void CounterCheck::FeedWords(const char* bytes, size_t words) {
    while (words > 0 && error_.empty()) {
        const size_t matching = MatchingBlocks(bytes, words);
        if (matching > 0) {
            runs_.back().numbers += matching;
            bytes += matching * WORD;
            words -= matching;
            continue;
        }
        TakeWord(LoadWord(bytes));
        bytes += WORD;
        --words;
    }
}

// Words at the front that are the expected numbers, in whole blocks.
size_t CounterCheck::MatchingBlocks(const char* bytes, size_t words) const {
    if (state_ != State::NUMBERS || runs_.empty()) {
        return 0;
    }
    const uint64_t expected = runs_.back().numbers;
    size_t matching = 0;
    while (matching + BLOCK_WORDS <= words) {
        uint64_t difference = 0;
        for (size_t i = matching; i < matching + BLOCK_WORDS; ++i) {
            difference |= LoadWord(bytes + i * WORD) ^ (expected + i);
        }
        if (difference != 0) {
            break;
        }
        matching += BLOCK_WORDS;
    }
    return matching;
}

void CounterCheck::TakeWord(uint64_t word) {
    switch (state_) {
        case State::HEADER_LENGTH:
            TakeHeaderLength(word);
            return;
        case State::HEADER_REST:
            headerLeft_ -= WORD;
            if (headerLeft_ == 0) {
                state_ = State::NUMBERS;
            }
            return;
        case State::NUMBERS:
            break;
    }
    if (!runs_.empty() && word == runs_.back().numbers) {
        ++runs_.back().numbers;
    } else if (word == HEADER_START) {
        runs_.emplace_back();
        headerLeft_ = WORD;
        state_ = State::HEADER_LENGTH;
    } else {
        Fail("neither the next number nor a header", word);
    }
}

void CounterCheck::TakeHeaderLength(uint64_t word) {
    const uint64_t length = word & UINT32_MAX;
    if (length < LEAST_HEADER || length % WORD != 0 || word >> 32 != COUNTER_SOURCE) {
        Fail("no header of a counter", word);
        return;
    }
    runs_.back().headerBytes = length;
    headerLeft_ = length - 2 * WORD;
    state_ = State::HEADER_REST;
}

void CounterCheck::Fail(const std::string& what, uint64_t word) {
    const uint64_t expected = runs_.empty() ? 0 : runs_.back().numbers;
    error_ = what + ": start " + std::to_string(runs_.size()) + ", expected " +
             std::to_string(expected) + ", found " + std::to_string(word);
}

}  // namespace tiv::test
