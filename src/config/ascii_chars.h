// Character classes of the checks: ASCII only, whatever the locale.
#pragma once

namespace analysis::rokt::common::validation {

constexpr bool IsAsciiDigit(char c) { return c >= '0' && c <= '9'; }

constexpr bool IsAsciiLetterOrDigit(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || IsAsciiDigit(c);
}

}  // namespace analysis::rokt::common::validation
