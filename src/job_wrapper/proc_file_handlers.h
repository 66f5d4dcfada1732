// The handlers that read one file of /proc: of the system, or of one process.
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include "job_wrapper/proc_timer_handler.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// CPU time since boot: the lines of /proc/stat down to the first that is not about a CPU, in lower
// case.
class ProcStatFileHandler : public ProcTimerHandler {
 public:
    using ProcTimerHandler::ProcTimerHandler;
    int ParseProcFile(std::ifstream& source, std::string& out) override;
};

// Memory of the system: /proc/meminfo as it stands.
class ProcMemFileHandler : public ProcTimerHandler {
 public:
    using ProcTimerHandler::ProcTimerHandler;
    int ParseProcFile(std::ifstream& source, std::string& out) override;
};

// CPU time of one process: its stat file, its name, and the system's total beside them, by which
// the host turns ticks into a share.
class ProcPidStatFileHandler : public ProcTimerHandler {
 public:
    // As ProcTimerHandler, with the pid in front of the result file's name.
    ProcPidStatFileHandler(uint32_t handlerTag, uint32_t devId, uint32_t bufSize,
                           uint32_t sampleIntervalNsArg, const std::string& procFile,
                           const std::string& resultFile,
                           const std::shared_ptr<analysis::rokt::message::ProfileParams>& paramsArg,
                           const std::shared_ptr<analysis::rokt::message::JobContext>& jobCtxArg,
                           const std::shared_ptr<analysis::rokt::transport::Uploader>& upLoader,
                           uint32_t pidArg, const std::string& procRootArg = PROC_ROOT);
    int ParseProcFile(std::ifstream& source, std::string& out) override;

 private:
    void AppendTotalCpuLine(std::string& out);

    uint32_t pid;
    std::ifstream statFile;  // the system's stat file, beside the process's own
    std::string procRoot;
};

// Memory of one process: its statm file and its name.
class ProcPidMemFileHandler : public ProcTimerHandler {
 public:
    // As ProcTimerHandler, with the pid in front of the result file's name.
    ProcPidMemFileHandler(uint32_t handlerTag, uint32_t devId, uint32_t bufSize,
                          uint32_t sampleIntervalNsArg, const std::string& procFile,
                          const std::string& resultFile,
                          const std::shared_ptr<analysis::rokt::message::ProfileParams>& paramsArg,
                          const std::shared_ptr<analysis::rokt::message::JobContext>& jobCtxArg,
                          const std::shared_ptr<analysis::rokt::transport::Uploader>& upLoader,
                          uint32_t pidArg, const std::string& procRootArg = PROC_ROOT);
    int ParseProcFile(std::ifstream& source, std::string& out) override;

 private:
    uint32_t pid;
    std::string procRoot;
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
