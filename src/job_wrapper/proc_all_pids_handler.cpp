// Which processes there are, and the handlers that follow them.
#include "job_wrapper/proc_all_pids_handler.h"

#include <algorithm>
#include <cstdlib>
#include <exception>

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

constexpr size_t EXPECTED_PROCESSES = 128;
// Hundreds of processes may be alive, each with two buffers of this size.
constexpr uint32_t PID_BUF_BYTES = 4096;

void FinishBoth(const ProcPidFileHandler& handlers) {
    if (handlers.memHandler != nullptr) {
        (void)handlers.memHandler->Uninit();
    }
    if (handlers.statHandler != nullptr) {
        (void)handlers.statHandler->Uninit();
    }
}

}  // namespace

ProcAllPidsFileHandler::ProcAllPidsFileHandler(uint32_t handlerTag, uint32_t devIdArg,
                                               uint32_t sampleIntervalNsArg,
                                               const std::shared_ptr<ProfileParams>& paramsArg,
                                               const std::shared_ptr<JobContext>& jobCtxArg,
                                               const std::shared_ptr<Uploader>& upLoader,
                                               const std::string& procRootArg)
    : TimerHandler(handlerTag),
      devId(devIdArg),
      sampleIntervalNs(sampleIntervalNsArg),
      params(paramsArg),
      jobCtx(jobCtxArg),
      upLoader_(upLoader),
      procRoot(procRootArg) {}

int ProcAllPidsFileHandler::Init() {
    TIV_LOGI("ProcAllPidsFileHandler Init");
    prevPids = ListPids();
    StartHandlers(prevPids);
    return 0;
}

int ProcAllPidsFileHandler::Uninit() {
    for (const auto& entry : pidsMap) {
        FinishBoth(*entry.second);
    }
    upLoader_.reset();
    pidsMap.clear();
    prevPids.clear();
    return 0;
}

int ProcAllPidsFileHandler::Execute() {
    const uint64_t now = Utils::GetClockMonotonicRaw();
    if (now - prevTimeStamp < sampleIntervalNs && prevTimeStamp != 0) {
        return 0;
    }
    prevTimeStamp = now;
    std::vector<uint32_t> current = ListPids();
    std::vector<uint32_t> exited;
    std::vector<uint32_t> created;
    ComparePids(current, exited, created);
    FinishHandlers(exited);
    StartHandlers(created);
    prevPids = std::move(current);
    for (const auto& entry : pidsMap) {
        if (entry.second->memHandler != nullptr) {
            (void)entry.second->memHandler->Execute();
        }
        if (entry.second->statHandler != nullptr) {
            (void)entry.second->statHandler->Execute();
        }
    }
    return 0;
}

std::vector<uint32_t> ProcAllPidsFileHandler::ListPids() const {
    std::vector<uint32_t> pids;
    pids.reserve(EXPECTED_PROCESSES);
    const size_t nameOffset = procRoot.size() + 1;
    for (const std::string& path : Utils::GetChildDirs(procRoot)) {
        // Names that are no number, and so no process, read as 0.
        const auto pid = static_cast<uint32_t>(std::strtoul(path.c_str() + nameOffset, nullptr, 0));
        if (pid != 0) {
            pids.push_back(pid);
        }
    }
    std::sort(pids.begin(), pids.end());
    return pids;
}

void ProcAllPidsFileHandler::ComparePids(const std::vector<uint32_t>& current,
                                         std::vector<uint32_t>& exited,
                                         std::vector<uint32_t>& created) const {
    auto before = prevPids.begin();
    auto now = current.begin();
    while (before != prevPids.end() && now != current.end()) {
        if (*before == *now) {
            ++before;
            ++now;
        } else if (*before < *now) {
            TIV_LOGI("exit Pid %d", static_cast<int>(*before));
            exited.push_back(*before++);
        } else {
            TIV_LOGI("New Pid %d", static_cast<int>(*now));
            created.push_back(*now++);
        }
    }
    exited.insert(exited.end(), before, prevPids.end());
    created.insert(created.end(), now, current.end());
}

void ProcAllPidsFileHandler::FinishHandlers(const std::vector<uint32_t>& pids) {
    for (const uint32_t pid : pids) {
        const auto found = pidsMap.find(pid);
        if (found != pidsMap.end()) {
            FinishBoth(*found->second);
            pidsMap.erase(found);
        }
    }
}

void ProcAllPidsFileHandler::StartHandlers(const std::vector<uint32_t>& pids) {
    for (const uint32_t pid : pids) {
        StartHandlersOf(pid);
    }
}

void ProcAllPidsFileHandler::StartHandlersOf(uint32_t pid) {
    try {
        const std::shared_ptr<ProcPidFileHandler> handlers = MakeHandlers(pid);
        const int memResult = handlers->memHandler->Init();
        const int statResult = handlers->statHandler->Init();
        if (memResult == 0 && statResult == 0) {
            pidsMap[pid] = handlers;
        }
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
    }
}

std::shared_ptr<ProcPidFileHandler> ProcAllPidsFileHandler::MakeHandlers(uint32_t pid) const {
    const std::string directory = procRoot + "/" + std::to_string(pid);
    const auto interval = static_cast<uint32_t>(sampleIntervalNs);
    auto handlers = std::make_shared<ProcPidFileHandler>();
    handlers->memHandler = std::make_shared<ProcPidMemFileHandler>(
        GetTag(), devId, PID_BUF_BYTES, interval, directory + "/statm", "Memory.data", params,
        jobCtx, upLoader_, pid, procRoot);
    handlers->statHandler = std::make_shared<ProcPidStatFileHandler>(
        GetTag(), devId, PID_BUF_BYTES, interval, directory + "/stat", "CpuUsage.data", params,
        jobCtx, upLoader_, pid, procRoot);
    return handlers;
}

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
