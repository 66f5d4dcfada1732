// Text of any encoding made fit for files that hold UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace tiv::host {

// `bytes` as UTF-8 without zero bytes: what is no such text stands as \xNN, one for each byte.
// Returns `bytes` itself when it is fit, else a view of `room`.
[[nodiscard]] std::string_view Utf8Text(std::string_view bytes, std::string& room);

// The longest front of `text`, which is UTF-8, that has at most `bytes` bytes and cuts no
// character.
[[nodiscard]] std::string_view Utf8Front(std::string_view text, size_t bytes);

}  // namespace tiv::host
