// The handler that follows every process of the machine.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "job_wrapper/proc_file_handlers.h"
#include "job_wrapper/timer_handler.h"
#include "message/job_context.h"
#include "message/prof_params.h"
#include "transport/uploader.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// The two handlers of one process.
struct ProcPidFileHandler {
    ~ProcPidFileHandler() = default;

    std::shared_ptr<ProcPidMemFileHandler> memHandler;
    std::shared_ptr<ProcPidStatFileHandler> statHandler;
};

// Lists the processes once per period, keeps a memory and a CPU handler for each of them, and
// passes the tick on. A process that went is finished and forgotten; a pid that comes back starts
// from the beginning.
//
// Only the timer's thread calls Execute. The handlers of the processes are not known to the timer:
// they share their parent's tag and thread. They compare the period with a clock of their own, so
// one that ran late in one pass may leave out the next.
class ProcAllPidsFileHandler : public TimerHandler {
 public:
    // Of a period of 4295 ms and more, only the low 32 bits arrive.
    ProcAllPidsFileHandler(uint32_t handlerTag, uint32_t devIdArg, uint32_t sampleIntervalNsArg,
                           const std::shared_ptr<analysis::rokt::message::ProfileParams>& paramsArg,
                           const std::shared_ptr<analysis::rokt::message::JobContext>& jobCtxArg,
                           const std::shared_ptr<analysis::rokt::transport::Uploader>& upLoader,
                           const std::string& procRootArg = PROC_ROOT);

    // One tick. Always 0.
    int Execute() override;
    // Starts the handlers of the processes there are. Always 0.
    [[nodiscard]] int Init() override;
    // Finishes all processes. Always 0.
    int Uninit() override;

 protected:
    uint32_t devId;
    uint64_t prevTimeStamp = 0;  // nanoseconds of the last pass, 0: none yet
    uint64_t sampleIntervalNs;
    std::shared_ptr<analysis::rokt::message::ProfileParams> params;
    std::shared_ptr<analysis::rokt::message::JobContext> jobCtx;
    std::shared_ptr<analysis::rokt::transport::Uploader> upLoader_;
    std::map<uint32_t, std::shared_ptr<ProcPidFileHandler>> pidsMap;
    std::vector<uint32_t> prevPids;  // of the last pass, in rising order

 private:
    [[nodiscard]] std::vector<uint32_t> ListPids() const;
    // Parts the pids that are in one list only into those that went and those that came.
    void ComparePids(const std::vector<uint32_t>& current, std::vector<uint32_t>& exited,
                     std::vector<uint32_t>& created) const;
    void FinishHandlers(const std::vector<uint32_t>& pids);
    void StartHandlers(const std::vector<uint32_t>& pids);
    // A process whose handlers cannot be had is left out until it shows up as new again.
    void StartHandlersOf(uint32_t pid);
    [[nodiscard]] std::shared_ptr<ProcPidFileHandler> MakeHandlers(uint32_t pid) const;

    std::string procRoot;
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
