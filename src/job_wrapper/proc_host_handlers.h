// The handlers for CPU, memory and network of a host process.
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>

#include "job_wrapper/proc_timer_handler.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// The three are for collection on the host side and for a creator that names their files
// ("host_cpu.data", "host_mem.data", "host_network.data") and their buffer sizes. They read the
// process named by host_sys_pid and store their text whole, without the record header. The stream
// that ParseProcFile is given is not open; each opens what it reads.

// CPU time of every thread of the process: "time <ns>", the first line of /proc/uptime, then the
// stat file of each thread.
class ProcHostCpuHandler : public ProcTimerHandler {
 public:
    ProcHostCpuHandler(uint32_t handlerTag, uint32_t bufSize, uint32_t sampleIntervalNsArg,
                       const std::string& resultFile,
                       const std::shared_ptr<analysis::rokt::message::ProfileParams>& paramsArg,
                       const std::shared_ptr<analysis::rokt::message::JobContext>& jobCtxArg,
                       const std::shared_ptr<analysis::rokt::transport::Uploader>& upLoader,
                       const std::string& procRootArg = PROC_ROOT);
    int ParseProcFile(std::ifstream& source, std::string& out) override;

 private:
    void AppendStatFiles(std::ifstream& source, std::string& out);

    std::string taskPath;
    std::string procRoot;
};

// Memory of the process: "<ns> <first line of statm>".
class ProcHostMemHandler : public ProcTimerHandler {
 public:
    ProcHostMemHandler(uint32_t handlerTag, uint32_t bufSize, uint32_t sampleIntervalNsArg,
                       const std::string& resultFile,
                       const std::shared_ptr<analysis::rokt::message::ProfileParams>& paramsArg,
                       const std::shared_ptr<analysis::rokt::message::JobContext>& jobCtxArg,
                       const std::shared_ptr<analysis::rokt::transport::Uploader>& upLoader,
                       const std::string& procRootArg = PROC_ROOT);
    int ParseProcFile(std::ifstream& source, std::string& out) override;

 private:
    std::string statmPath;
};

// Traffic of all interfaces: "time <ns>", then the lines of /proc/net/dev that name an interface.
class ProcHostNetworkHandler : public ProcTimerHandler {
 public:
    ProcHostNetworkHandler(uint32_t handlerTag, uint32_t bufSize, uint32_t sampleIntervalNsArg,
                           const std::string& resultFile,
                           const std::shared_ptr<analysis::rokt::message::ProfileParams>& paramsArg,
                           const std::shared_ptr<analysis::rokt::message::JobContext>& jobCtxArg,
                           const std::shared_ptr<analysis::rokt::transport::Uploader>& upLoader,
                           const std::string& procRootArg = PROC_ROOT);
    int ParseProcFile(std::ifstream& source, std::string& out) override;

 private:
    std::string procRoot;
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
