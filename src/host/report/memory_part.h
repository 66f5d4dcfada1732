// The system's memory on a page.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "host/report/page_part.h"
#include "host/result/tables.h"

namespace tiv::host {

// Draws what the memory is used for and lists every line of the readings. One thread.
class MemoryPart : public PagePart {
 public:
    void Take(const MemoryKeyRow& row);
    void Take(const MemoryRow& row);

    void Finish() override;
    void IncludeIn(PageGrid& grid) const override;
    void Write(PageContext& context) override;

    // The device's whole memory in bytes; absent when it was not measured.
    [[nodiscard]] std::optional<uint64_t> TotalBytes(int deviceId) const;

 private:
    struct Key {
        std::string name;
        bool isBytes = false;
        uint64_t first = 0;
        uint64_t last = 0;
        uint64_t least = 0;
        uint64_t greatest = 0;
        uint64_t readings = 0;
    };
    // The values of one reading that the chart is made of.
    struct Reading {
        uint64_t timeNs = 0;
        std::map<std::string, uint64_t, std::less<>> bytes;
    };
    enum Layer : size_t { USED, CACHED, BUFFERS, FREE, LAYER_COUNT };
    struct Device {
        std::map<uint32_t, Key> keys;
        Reading reading;
        std::optional<uint64_t> previousNs;
        uint64_t shortestNs = UINT64_MAX;  // between two readings
        CellSeries layers[LAYER_COUNT];
        CellSeries swapUsed;
        bool swapInUse = false;
    };

    static void EndReading(Device& device);
    static void TakeSwap(Device& device, uint64_t since, uint64_t total, uint64_t free);
    void WriteSwap(PageContext& context, int deviceId, Device& device);
    void WriteChart(PageContext& context, int deviceId, Device& device);
    void WriteTable(PageContext& context, int deviceId, const Device& device);

    std::map<int, Device> devices_;
};

// The time that a level holds which was read at `timeNs`, the reading before being at `previousNs`:
// since that one, but at most five of the shortest intervals, for nobody knows what was in between.
[[nodiscard]] uint64_t HeldSince(std::optional<uint64_t>& previousNs, uint64_t& shortestNs,
                                 uint64_t timeNs);

}  // namespace tiv::host
