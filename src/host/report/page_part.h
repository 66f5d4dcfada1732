// One subject of a report page: rows go in, sections of the page come out.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "host/report/page_grid.h"

namespace tiv::host {

// What the parts write their sections to.
struct PageContext {
    const PageGrid& grid;
    PageBlock& block;
    nlohmann::ordered_json& sections;
    bool manyDevices = false;  // then each section names its device

    // " of device 3" when there are several, else nothing.
    [[nodiscard]] std::string OfDevice(int deviceId) const {
        return manyDevices ? " of device " + std::to_string(deviceId) : "";
    }
};

// A part takes its rows as long as the reading lasts, then shows its series to the grid, and writes
// its sections when the grid is fixed. One thread.
class PagePart {
 public:
    PagePart() = default;
    virtual ~PagePart() = default;
    PagePart(const PagePart&) = delete;
    PagePart& operator=(const PagePart&) = delete;

    // Every row has been taken.
    virtual void Finish() {}
    virtual void IncludeIn(PageGrid& grid) const = 0;
    virtual void Write(PageContext& context) = 0;
};

// A section with nothing but a sentence why.
[[nodiscard]] inline nlohmann::ordered_json EmptySection(const char* id, const char* title,
                                                         const char* text) {
    return {{"kind", "empty"}, {"id", id}, {"title", title}, {"text", text}};
}

}  // namespace tiv::host
