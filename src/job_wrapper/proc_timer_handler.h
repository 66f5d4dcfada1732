// The handler that reads /proc at a period and sends the readings to the host.
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include "common/chunk.h"
#include "job_wrapper/timer_handler.h"
#include "message/job_context.h"
#include "message/prof_params.h"
#include "transport/uploader.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// Where process information lies. Everything below is derived from it, so that a recorded tree can
// stand in for the machine's own.
constexpr const char* PROC_ROOT = "/proc";

// Takes a sample once per period and gathers the samples in a buffer, so that an upload happens
// about once per three quarters of a buffer. A sample of a file is one record of text:
//
//   TimeStamp:<monotonic ns>\n
//   Index:<count of samples>\n
//   DataLen:<bytes of the reading>\n
//   <the reading>\n
//
// A subclass makes the reading. One without a file to read gets no such header: its text goes out
// as it is.
//
// A sample that cannot be read costs a line in the log, data that cannot be sent is dropped;
// neither stops the timer. Init and Uninit belong to the job, Execute to the timer's thread; the
// timer's mutex parts them, so no field has a lock of its own.
class ProcTimerHandler : public TimerHandler {
 public:
    // `bufSize` in bytes. The period in nanoseconds is 32 bits wide: of 4295 ms and more, only the
    // low 32 bits arrive.
    ProcTimerHandler(uint32_t handlerTag, uint32_t devId, uint32_t bufSize,
                     uint32_t sampleIntervalNsArg, const std::string& procFile,
                     const std::string& resultFile,
                     const std::shared_ptr<analysis::rokt::message::ProfileParams>& paramsArg,
                     const std::shared_ptr<analysis::rokt::message::JobContext>& jobCtxArg,
                     const std::shared_ptr<analysis::rokt::transport::Uploader>& upLoader);

    // One tick; samples when the period is over. Always 0.
    int Execute() override;
    // 0, or -1 when it was inited before or the buffer cannot be had.
    [[nodiscard]] int Init() override;
    // Sends what is buffered and lets the uploader go. Always 0; does nothing a second time.
    int Uninit() override;

    // Appends the reading of the opened `source` to `out`. Nobody looks at the result.
    virtual int ParseProcFile(std::ifstream& source, std::string& out) = 0;

    // Sends what is buffered.
    void FlushBuf();
    void SendData(const void* data, uint32_t len);
    // Buffers `data`, or sends it along with what was buffered when there is no room for it.
    void StoreData(const std::string& data);
    // Wraps a reading into a record; `headerRoom` bytes are reserved for what is around it. Leaves
    // `out` empty when the reading is.
    void PackData(std::string& out, const std::string& data, uint32_t headerRoom);
    [[nodiscard]] bool CheckProcFileSize(const std::string& path);

 protected:
    // Opens a stream that is used for every sample, also when a sample that ran out of memory left
    // it open. False when the file cannot be opened.
    [[nodiscard]] static bool OpenAfresh(std::ifstream& source, const std::string& path);

    analysis::rokt::common::memory::Chunk buf;
    std::ifstream file;  // reused at each sample
    bool isInited_ = false;
    uint64_t prevTimeStamp = 0;  // nanoseconds of the last sample, 0: none yet
    uint64_t sampleIntervalNs;
    uint32_t index = 0;  // samples so far, empty ones too
    std::string procFileName;
    std::string retFileName;
    std::shared_ptr<analysis::rokt::message::ProfileParams> params;
    std::shared_ptr<analysis::rokt::message::JobContext> jobCtx;
    std::shared_ptr<analysis::rokt::transport::Uploader> upLoader_;

 private:
    // The next piece of text for the buffer. False when the file cannot be read.
    [[nodiscard]] bool TakeSample(std::string& sample);
    void SendBuffered();
    // Null, with an error, when memory is short.
    [[nodiscard]] std::shared_ptr<analysis::rokt::ProfileFileChunk> MakeChunk(const void* data,
                                                                              uint32_t len) const;
    // Copies `data` behind what is buffered. False when there is no buffer.
    [[nodiscard]] bool AppendToBuf(const std::string& data);
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
