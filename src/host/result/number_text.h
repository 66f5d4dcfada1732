// Reading numbers and lines out of text that nobody vouches for.
#pragma once

#include <charconv>
#include <cstdint>
#include <limits>
#include <string_view>

namespace tiv::host {

// Larger numbers fit no table.
constexpr uint64_t LARGEST_NUMBER = std::numeric_limits<int64_t>::max();

// Takes the line at the front of `rest`, without its end. False when `rest` is empty.
inline bool TakeLine(std::string_view& rest, std::string_view& line) {
    if (rest.empty()) {
        return false;
    }
    const size_t end = rest.find('\n');
    line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    return true;
}

inline void SkipBlanks(std::string_view& rest) {
    size_t blanks = 0;
    while (blanks < rest.size() && rest[blanks] == ' ') {
        ++blanks;
    }
    rest.remove_prefix(blanks);
}

// Takes the decimal number of at most 19 digits at the front of `rest`. False, and `rest` as
// before, when none of at most LARGEST_NUMBER stands there.
inline bool TakeNumber(std::string_view& rest, uint64_t& number) {
    constexpr size_t MAX_DIGITS = 19;
    uint64_t value = 0;
    size_t digits = 0;
    for (; digits < rest.size() && rest[digits] >= '0' && rest[digits] <= '9'; ++digits) {
        if (digits == MAX_DIGITS) {
            return false;
        }
        value = value * 10 + static_cast<uint64_t>(rest[digits] - '0');
    }
    if (digits == 0 || value > LARGEST_NUMBER) {
        return false;
    }
    number = value;
    rest.remove_prefix(digits);
    return true;
}

// The same for a hexadecimal number of any 64 bits.
inline bool TakeHex(std::string_view& rest, uint64_t& number) {
    const auto [last, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number, 16);
    if (error != std::errc()) {
        return false;
    }
    rest.remove_prefix(static_cast<size_t>(last - rest.data()));
    return true;
}

// Takes blanks and the number behind them, which ends at a blank or with the text.
inline bool TakeField(std::string_view& rest, uint64_t& number) {
    SkipBlanks(rest);
    return TakeNumber(rest, number) && (rest.empty() || rest.front() == ' ');
}

// True when `text` is one number and nothing else.
inline bool IsNumber(std::string_view text, uint64_t& number) {
    return TakeNumber(text, number) && text.empty();
}

// Takes a word of `text` at the front of `rest`.
inline bool TakeText(std::string_view& rest, std::string_view text) {
    if (rest.substr(0, text.size()) != text) {
        return false;
    }
    rest.remove_prefix(text.size());
    return true;
}

// `number` times `factor`; false when that is beyond LARGEST_NUMBER.
inline bool Scale(uint64_t& number, uint64_t factor) {
    return !__builtin_mul_overflow(number, factor, &number) && number <= LARGEST_NUMBER;
}

// Takes "<seconds>.<fraction>" as nanoseconds; the fraction has at most nine digits.
inline bool TakeSeconds(std::string_view& rest, uint64_t& timeNs) {
    constexpr uint64_t NS_PER_SECOND = 1000000000;
    constexpr size_t FRACTION_DIGITS = 9;
    uint64_t fraction = 0;
    if (!TakeNumber(rest, timeNs) || !Scale(timeNs, NS_PER_SECOND) || !TakeText(rest, ".")) {
        return false;
    }
    const size_t before = rest.size();
    if (!TakeNumber(rest, fraction) || before - rest.size() > FRACTION_DIGITS) {
        return false;
    }
    for (size_t digits = before - rest.size(); digits < FRACTION_DIGITS; ++digits) {
        fraction *= 10;
    }
    timeNs += fraction;
    return timeNs <= LARGEST_NUMBER;
}

}  // namespace tiv::host
