// One line of a screen: text in columns, with styles.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/live/cell_text.h"

namespace tiv::host {

enum class Style { PLAIN, DIM, BOLD, REVERSE, GOOD, WARNING, ALARM };

// Text beyond the width is cut. Everything that is put is made harmless, whoever wrote it.
class ScreenLine {
 public:
    ScreenLine(size_t width, Charset charset) : width_(width), charset_(charset) {}

    // Puts text behind what is there.
    ScreenLine& Put(std::string_view text, Style style = Style::PLAIN);
    // Puts text that ends at `column` from the left, with blanks in front of it.
    ScreenLine& PutRight(std::string_view text, size_t column, Style style = Style::PLAIN);
    // Puts text in at most `columns` columns.
    ScreenLine& PutCut(std::string_view text, size_t columns, Style style = Style::PLAIN);
    // Blanks up to a column.
    ScreenLine& Pad(size_t column);

    [[nodiscard]] size_t Columns() const { return columns_; }
    [[nodiscard]] size_t Left() const { return width_ - columns_; }
    [[nodiscard]] Charset GetCharset() const { return charset_; }

    // The text alone, without blanks at its end.
    [[nodiscard]] std::string Plain() const;
    // With control sequences for the styles; ends in the plain style.
    [[nodiscard]] std::string Painted(bool colours) const;

 private:
    struct Part {
        std::string text;
        Style style;
    };

    size_t width_;
    Charset charset_;
    size_t columns_ = 0;
    std::vector<Part> parts_;
};

// A line that shows values from 0 to `full` as heights, newest last, in at most `columns` columns.
// What was not measured is a blank.
[[nodiscard]] std::string Sparkline(const std::vector<std::optional<double>>& values, double full,
                                    size_t columns, Charset charset);
// A bar of `columns` columns, of which `share` (0 to 1) is filled.
[[nodiscard]] std::string Bar(double share, size_t columns, Charset charset);

}  // namespace tiv::host
