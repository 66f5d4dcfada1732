// How fast the devices' data came.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "host/report/page_part.h"
#include "host/result/tables.h"

namespace tiv::host {

// Draws the bytes per second that came from each device: its driver channels by themselves, and all
// of its files together. The times are those of the collecting machine; where its clock is not the
// device's, the plot begins at 0. One thread.
class ArrivalPart : public PagePart {
 public:
    static constexpr uint64_t LEAST_STRETCH_NS = 100'000'000;

    // The collecting machine's clock is the devices' clock.
    void SetOneClock(bool oneClock) { oneClock_ = oneClock; }
    void Take(const ChunkRow& row);

    void Finish() override;
    void IncludeIn(PageGrid& grid) const override;
    void Write(PageContext& context) override;

 private:
    // Chunks come in lots: a rate is told for stretches of at least LEAST_STRETCH_NS.
    struct Flow {
        CellSeries rate;
        std::optional<uint64_t> fromNs;  // where the stretch began; none before the first chunk
        uint64_t lastNs = 0;             // when the last chunk came
        uint64_t pending = 0;            // bytes of the stretch

        void Add(uint64_t timeNs, uint64_t bytes);
        void End(uint64_t timeNs);
        void Finish();
    };
    struct Device {
        uint64_t firstNs = 0;  // the arrival that is 0 on a clock of its own
        Flow all;
        std::map<std::string, Flow> channels;  // by file
    };

    [[nodiscard]] int ClockOf(int deviceId) const;
    void WriteChart(PageContext& context, int deviceId, Device& device);

    bool oneClock_ = false;
    std::map<int, Device> devices_;
};

}  // namespace tiv::host
