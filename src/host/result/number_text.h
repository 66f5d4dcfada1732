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
    const size_t begin = rest.find_first_not_of(' ');
    rest.remove_prefix(begin == std::string_view::npos ? rest.size() : begin);
}

// Takes the number at the front of `rest`. False, and `rest` as before, when none of at most
// LARGEST_NUMBER stands there.
inline bool TakeNumber(std::string_view& rest, uint64_t& number, int base = 10) {
    const auto [last, error] =
        std::from_chars(rest.data(), rest.data() + rest.size(), number, base);
    if (error != std::errc() || number > LARGEST_NUMBER) {
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
inline bool IsNumber(std::string_view text, uint64_t& number, int base = 10) {
    return TakeNumber(text, number, base) && text.empty();
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
    if (factor != 0 && number > LARGEST_NUMBER / factor) {
        return false;
    }
    number *= factor;
    return true;
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
