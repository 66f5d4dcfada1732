// The readings of the system's and of a process's files.
#include "job_wrapper/proc_file_handlers.h"

#include "common/utils.h"
#include "platform/log.h"
#include "platform/mm_api.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

using analysis::rokt::common::utils::Utils;
using analysis::rokt::message::JobContext;
using analysis::rokt::message::ProfileParams;
using analysis::rokt::transport::Uploader;

namespace {

constexpr size_t STAT_ROOM = 512;
constexpr size_t MEM_ROOM = 1536;
constexpr size_t PID_MEM_ROOM = 32;
constexpr int64_t MAX_COMM_FILE_BYTES = 2097152;
constexpr const char* CPU_MARK = "cpu";

// True when there was at least one line.
bool AppendAllLines(std::ifstream& source, std::string& out) {
    bool hasLine = false;
    std::string line;
    while (std::getline(source, line)) {
        out.append(line).append("\n");
        hasLine = true;
    }
    return hasLine;
}

bool IsCommSizeValid(const std::string& path) {
    uint64_t bytes = 0;
    (void)mmGetFileSize(path.c_str(), &bytes);
    const auto size = static_cast<int64_t>(bytes);
    if (size < 0 || size > MAX_COMM_FILE_BYTES) {
        TIV_LOGE("proc comm file size is invalid");
        return false;
    }
    return true;
}

std::string ReadProcessName(const std::string& procRoot, uint32_t pid) {
    std::string name = "self";
    const std::string path = procRoot + "/" + std::to_string(pid) + "/comm";
    if (!IsCommSizeValid(path)) {
        return name;
    }
    std::ifstream comm(path);
    if (!comm.is_open()) {
        TIV_LOGW("Open file %s failed", path.c_str());
        return name;
    }
    std::string line;
    if (std::getline(comm, line)) {
        name = line;
    }
    return name;
}

void AppendProcessName(const std::string& procRoot, uint32_t pid, std::string& out) {
    out.append("ProcessName:").append(ReadProcessName(procRoot, pid)).append("\n");
}

}  // namespace

int ProcStatFileHandler::ParseProcFile(std::ifstream& source, std::string& out) {
    out.reserve(STAT_ROOM);
    std::string line;
    while (std::getline(source, line)) {
        line = Utils::ToLower(line);
        if (line.find(CPU_MARK) == std::string::npos) {
            break;
        }
        out.append(line).append("\n");
    }
    return 0;
}

int ProcMemFileHandler::ParseProcFile(std::ifstream& source, std::string& out) {
    out.reserve(MEM_ROOM);
    (void)AppendAllLines(source, out);
    return 0;
}

ProcPidStatFileHandler::ProcPidStatFileHandler(
    uint32_t handlerTag, uint32_t devId, uint32_t bufSize, uint32_t sampleIntervalNsArg,
    const std::string& procFile, const std::string& resultFile,
    const std::shared_ptr<ProfileParams>& paramsArg, const std::shared_ptr<JobContext>& jobCtxArg,
    const std::shared_ptr<Uploader>& upLoader, uint32_t pidArg, const std::string& procRootArg)
    : ProcTimerHandler(handlerTag, devId, bufSize, sampleIntervalNsArg, procFile,
                       std::to_string(pidArg) + "-" + resultFile, paramsArg, jobCtxArg, upLoader),
      pid(pidArg),
      procRoot(procRootArg) {}

int ProcPidStatFileHandler::ParseProcFile(std::ifstream& source, std::string& out) {
    out.reserve(STAT_ROOM);
    if (!AppendAllLines(source, out)) {
        return 0;
    }
    AppendProcessName(procRoot, pid, out);
    AppendTotalCpuLine(out);
    return 0;
}

void ProcPidStatFileHandler::AppendTotalCpuLine(std::string& out) {
    const std::string path = procRoot + "/stat";
    if (!OpenAfresh(statFile, path)) {
        TIV_LOGW("Open file %s failed", path.c_str());
        return;
    }
    std::string line;
    while (std::getline(statFile, line)) {
        line = Utils::ToLower(line);
        if (line.find(CPU_MARK) != std::string::npos) {
            out.append(line).append("\n");
            break;
        }
    }
    statFile.close();
}

ProcPidMemFileHandler::ProcPidMemFileHandler(
    uint32_t handlerTag, uint32_t devId, uint32_t bufSize, uint32_t sampleIntervalNsArg,
    const std::string& procFile, const std::string& resultFile,
    const std::shared_ptr<ProfileParams>& paramsArg, const std::shared_ptr<JobContext>& jobCtxArg,
    const std::shared_ptr<Uploader>& upLoader, uint32_t pidArg, const std::string& procRootArg)
    : ProcTimerHandler(handlerTag, devId, bufSize, sampleIntervalNsArg, procFile,
                       std::to_string(pidArg) + "-" + resultFile, paramsArg, jobCtxArg, upLoader),
      pid(pidArg),
      procRoot(procRootArg) {}

int ProcPidMemFileHandler::ParseProcFile(std::ifstream& source, std::string& out) {
    out.reserve(PID_MEM_ROOM);
    if (AppendAllLines(source, out)) {
        AppendProcessName(procRoot, pid, out);
    }
    return 0;
}

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
