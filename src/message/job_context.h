// The job context: which job, device and module a message speaks of.
#pragma once

#include <cstdint>
#include <string>

#include "message/base_info.h"

namespace analysis::rokt::message {

// Carried as text in Header.job_ctx of every message that has a header. dev_id and job_id together
// are the key of a task, so both are text.
//
// The times are written with all 64 bits, but the reader takes integers up to 2147483647 only: a
// context that holds a larger time can be sent and not be read back.
struct JobContext : public BaseInfo {
    void ToObject(Json& object) const override;
    void FromObject(const Json& object) override;
    [[nodiscard]] std::string GetClassName() const override;

    std::string result_dir;
    std::string module;
    std::string tag;
    std::string dev_id;
    std::string job_id;
    uint64_t chunkStartTime = 0;
    uint64_t chunkEndTime = 0;
    int32_t dataModule = 0;
    std::string stream_enabled;
};

}  // namespace analysis::rokt::message
