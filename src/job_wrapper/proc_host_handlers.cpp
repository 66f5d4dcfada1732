// The readings of a host process and of the host's network.
#include "job_wrapper/proc_host_handlers.h"

#include "common/utils.h"
#include "platform/log.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

using analysis::rokt::common::utils::Utils;
using analysis::rokt::message::JobContext;
using analysis::rokt::message::ProfileParams;
using analysis::rokt::transport::Uploader;

namespace {

constexpr size_t READING_ROOM = 512;
// The devices' own number has no meaning on the host side.
constexpr uint32_t NO_DEVICE = 0;

std::string HostProcessPath(const std::string& procRoot,
                            const std::shared_ptr<ProfileParams>& params, const char* name) {
    return procRoot + "/" + std::to_string(params->host_sys_pid) + "/" + name;
}

std::string ClockText() { return std::to_string(Utils::GetClockMonotonicRaw()); }

void AppendFirstLine(std::ifstream& source, std::string& out) {
    std::string line;
    if (std::getline(source, line)) {
        out.append(line).append("\n");
    }
}

}  // namespace

ProcHostCpuHandler::ProcHostCpuHandler(uint32_t handlerTag, uint32_t bufSize,
                                       uint32_t sampleIntervalNsArg, const std::string& resultFile,
                                       const std::shared_ptr<ProfileParams>& paramsArg,
                                       const std::shared_ptr<JobContext>& jobCtxArg,
                                       const std::shared_ptr<Uploader>& upLoader,
                                       const std::string& procRootArg)
    : ProcTimerHandler(handlerTag, NO_DEVICE, bufSize, sampleIntervalNsArg, "", resultFile,
                       paramsArg, jobCtxArg, upLoader),
      taskPath(HostProcessPath(procRootArg, paramsArg, "task")),
      procRoot(procRootArg) {}

int ProcHostCpuHandler::ParseProcFile(std::ifstream& source, std::string& out) {
    std::string stats;
    stats.reserve(READING_ROOM);
    AppendStatFiles(source, stats);
    if (stats.empty()) {
        return 0;
    }
    out.reserve(READING_ROOM);
    out.append("time ").append(ClockText()).append("\n");
    const std::string uptimePath = procRoot + "/uptime";
    if (CheckProcFileSize(uptimePath)) {
        if (OpenAfresh(source, uptimePath)) {
            AppendFirstLine(source, out);
            source.close();
        } else {
            TIV_LOGW("Open file %s failed.", uptimePath.c_str());
        }
    }
    out.append(stats);
    return 0;
}

void ProcHostCpuHandler::AppendStatFiles(std::ifstream& source, std::string& out) {
    for (const std::string& directory : Utils::GetChildDirs(taskPath)) {
        const std::string path = directory + "/stat";
        if (!CheckProcFileSize(path)) {
            continue;
        }
        if (!OpenAfresh(source, path)) {
            TIV_LOGW("Open file %s failed.", path.c_str());
            continue;
        }
        std::string line;
        while (std::getline(source, line)) {
            out.append(line).append("\n");
        }
        source.close();
    }
}

ProcHostMemHandler::ProcHostMemHandler(uint32_t handlerTag, uint32_t bufSize,
                                       uint32_t sampleIntervalNsArg, const std::string& resultFile,
                                       const std::shared_ptr<ProfileParams>& paramsArg,
                                       const std::shared_ptr<JobContext>& jobCtxArg,
                                       const std::shared_ptr<Uploader>& upLoader,
                                       const std::string& procRootArg)
    : ProcTimerHandler(handlerTag, NO_DEVICE, bufSize, sampleIntervalNsArg, "", resultFile,
                       paramsArg, jobCtxArg, upLoader),
      statmPath(HostProcessPath(procRootArg, paramsArg, "statm")) {}

int ProcHostMemHandler::ParseProcFile(std::ifstream& source, std::string& out) {
    out.reserve(READING_ROOM);
    if (!CheckProcFileSize(statmPath)) {
        return 0;
    }
    if (!OpenAfresh(source, statmPath)) {
        TIV_LOGW("Open file %s failed", statmPath.c_str());
        return 0;
    }
    std::string line;
    AppendFirstLine(source, line);
    source.close();
    if (!line.empty()) {
        out.append(ClockText()).append(" ").append(line);
    }
    return 0;
}

ProcHostNetworkHandler::ProcHostNetworkHandler(uint32_t handlerTag, uint32_t bufSize,
                                               uint32_t sampleIntervalNsArg,
                                               const std::string& resultFile,
                                               const std::shared_ptr<ProfileParams>& paramsArg,
                                               const std::shared_ptr<JobContext>& jobCtxArg,
                                               const std::shared_ptr<Uploader>& upLoader,
                                               const std::string& procRootArg)
    : ProcTimerHandler(handlerTag, NO_DEVICE, bufSize, sampleIntervalNsArg, "", resultFile,
                       paramsArg, jobCtxArg, upLoader),
      procRoot(procRootArg) {}

int ProcHostNetworkHandler::ParseProcFile(std::ifstream& source, std::string& out) {
    out.reserve(READING_ROOM);
    out.append("time ").append(ClockText()).append("\n");
    const std::string path = procRoot + "/net/dev";
    if (!CheckProcFileSize(path)) {
        return 0;
    }
    if (!OpenAfresh(source, path)) {
        TIV_LOGW("Open file %s failed", path.c_str());
        return 0;
    }
    std::string line;
    while (std::getline(source, line)) {
        if (line.find(':') != std::string::npos) {
            out.append(line).append("\n");
        }
    }
    source.close();
    return 0;
}

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
