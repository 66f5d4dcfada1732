// The system's CPU use on a page: by state, by core, and in figures.
#pragma once

#include <array>
#include <map>

#include "host/report/page_part.h"
#include "host/result/tables.h"

namespace tiv::host {

class SystemPart : public PagePart {
 public:
    void Take(const SystemCpuRow& row);

    void IncludeIn(PageGrid& grid) const override;
    void Write(PageContext& context) override;

    // Busy share of all cores of the first device where it was measured, for the page's overview,
    // and that device; null when there is none.
    [[nodiscard]] CellSeries* Busy(int& deviceId);
    // Cores that were seen on a device.
    [[nodiscard]] size_t Cores(int deviceId) const;

 private:
    struct Sum {
        double percentNs[CPU_STATE_COUNT] = {};
        double ns = 0;
        double greatestBusy = 0;
    };
    struct Core {
        CellSeries busy;
        Sum sum;
    };
    struct Device {
        std::array<CellSeries, CPU_STATE_COUNT> states;
        std::map<int32_t, Core> cores;  // ALL_CORES among them
    };

    static bool IsMeasured(const Device& device);
    void WriteStates(PageContext& context, int deviceId, Device& device);
    void WriteCores(PageContext& context, int deviceId, Device& device);
    void WriteTable(PageContext& context, int deviceId, const Device& device);

    std::map<int, Device> devices_;
};

}  // namespace tiv::host
