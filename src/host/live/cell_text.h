// Text of anybody's making as it may stand in a cell of a screen.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tiv::host {

// What the terminal can show besides ASCII.
enum class Charset { ASCII, UTF8 };

// The charset that the environment's locale names.
[[nodiscard]] Charset LocaleCharset();

struct CellText {
    std::string text;
    size_t columns = 0;  // that it takes on a screen
};

// The front of `bytes` in at most `columns` columns; what was cut off is marked in the last one.
// Only characters come through whose width every terminal agrees upon. Control characters, bytes
// that are no UTF-8, and characters that take no room, change the direction or join with others
// stand as \xNN or \u{N}.
[[nodiscard]] CellText FitCells(std::string_view bytes, size_t columns, Charset charset);

}  // namespace tiv::host
