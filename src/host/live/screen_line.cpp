// Columns and styles.
#include "host/live/screen_line.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tiv::host {

namespace {

constexpr std::array<const char*, 8> HEIGHTS = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::array<const char*, 8> ASCII_HEIGHTS = {"_", ".", ":", "-", "=", "+", "*", "#"};

struct StyleStart {
    const char* coloured;
    const char* plain;  // where colours are not wanted
};

// In the order of Style.
constexpr std::array<StyleStart, 7> STARTS = {{{"", ""},
                                               {"\033[2m", "\033[2m"},
                                               {"\033[1m", "\033[1m"},
                                               {"\033[7m", "\033[7m"},
                                               {"\033[32m", ""},
                                               {"\033[33m", ""},
                                               {"\033[1;31m", "\033[1m"}}};

}  // namespace

ScreenLine& ScreenLine::PutCut(std::string_view text, size_t columns, Style style) {
    CellText cell = FitCells(text, std::min(columns, Left()), charset_);
    if (cell.columns > 0) {
        columns_ += cell.columns;
        parts_.push_back({std::move(cell.text), style});
    }
    return *this;
}

ScreenLine& ScreenLine::Put(std::string_view text, Style style) {
    return PutCut(text, Left(), style);
}

ScreenLine& ScreenLine::Pad(size_t column) {
    const size_t end = std::min(column, width_);
    if (end > columns_) {
        parts_.push_back({std::string(end - columns_, ' '), Style::PLAIN});
        columns_ = end;
    }
    return *this;
}

ScreenLine& ScreenLine::PutRight(std::string_view text, size_t column, Style style) {
    const CellText cell = FitCells(text, width_, charset_);
    Pad(column > cell.columns ? column - cell.columns : 0);
    return PutCut(text, Left(), style);
}

std::string ScreenLine::Plain() const {
    std::string text;
    for (const Part& part : parts_) {
        text += part.text;
    }
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::string ScreenLine::Painted(bool colours) const {
    std::string text;
    for (const Part& part : parts_) {
        const StyleStart& starts = STARTS[static_cast<size_t>(part.style)];
        const char* start = colours ? starts.coloured : starts.plain;
        text += start;
        text += part.text;
        text += *start == '\0' ? "" : "\033[m";
    }
    return text;
}

std::string Sparkline(const std::vector<std::optional<double>>& values, double full, size_t columns,
                      Charset charset) {
    const auto& heights = charset == Charset::UTF8 ? HEIGHTS : ASCII_HEIGHTS;
    std::string text;
    for (size_t i = values.size() - std::min(values.size(), columns); i < values.size(); ++i) {
        if (!values[i].has_value()) {
            text += ' ';
            continue;
        }
        const double share = std::clamp(*values[i] / full, 0.0, 1.0);
        const auto height = static_cast<size_t>(share * static_cast<double>(heights.size()));
        text += heights[std::min(height, heights.size() - 1)];
    }
    return text;
}

std::string Bar(double share, size_t columns, Charset charset) {
    const double width = static_cast<double>(columns);
    const auto filled = static_cast<size_t>(std::lround(std::clamp(share, 0.0, 1.0) * width));
    std::string text;
    for (size_t i = 0; i < columns; ++i) {
        const bool isFilled = i < filled;
        text += charset == Charset::UTF8 ? (isFilled ? "█" : "░") : (isFilled ? "#" : ".");
    }
    return text;
}

}  // namespace tiv::host
