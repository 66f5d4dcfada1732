// A whole collection: all devices from the first handshake to the finished result directory.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/child_command.h"
#include "host/device_link.h"
#include "host/device_run.h"
#include "host/job_plan.h"
#include "host/manifest.h"
#include "host/progress_line.h"
#include "host/stop_signal.h"

namespace tiv::host {

// Runs a plan and leaves a result directory behind, whatever happens: what arrived is kept, and the
// manifest says whether it is everything. One object per collection; one thread.
class Collector {
 public:
    // `view` is borrowed and has the terminal to itself: what the command prints goes to
    // command.log in the result. Without one a progress line is shown, unless `quiet`.
    Collector(JobPlan plan, CollectOptions options, bool quiet, CollectionView* view = nullptr);

    // Returns the exit code. Messages for people go to standard error. Throws when threads or
    // memory run out; no result is left behind then if the collection has not begun.
    int Run();

    // The result directory; empty when there is none, because the collection never began.
    [[nodiscard]] const std::string& ResultDirectory() const { return directory_; }
    [[nodiscard]] const std::vector<std::unique_ptr<DeviceRun>>& Runs() const { return runs_; }

 private:
    bool MakeResult();
    bool MakeDirectories(const std::string& path);
    bool StartAll();
    bool StartCommand();
    bool RunReplays();
    bool RunReplay();
    bool NextReplay();
    bool PassTime(std::optional<std::chrono::steady_clock::time_point> end,
                  const std::string& phase);
    void ReportEnded();
    bool TakeStop();
    void EndReplayRecord();
    void WaitForCommand();
    std::vector<DeviceRun*> StopAll();
    bool DrainAll(const std::vector<DeviceRun*>& stopped);
    int Finish(bool drained);
    int LeaveWithoutResult();
    bool SaveManifest();
    void ShowProgress(const std::string& phase);
    void Report(const std::string& message);
    bool AllAlive();
    void SayHowToLeave();
    bool WritingFailed();
    void RemoveResult();

    const JobPlan plan_;
    const CollectOptions options_;
    StopSignal stop_;
    ProgressLine progress_;
    CollectionView& view_;
    DeviceLink link_;  // outlives the runs
    std::vector<std::unique_ptr<DeviceRun>> runs_;
    std::string directory_;
    const bool quiet_;
    const bool keepsOutput_;  // the command's
    ChildCommand command_;
    int leaveCode_;         // of a collection that does not begin
    bool starting_ = true;  // until every device collects: the first Ctrl-C gives up
    bool saidHowToLeave_ = false;
    CollectionRecord record_;
    std::chrono::steady_clock::time_point startedAt_;
};

}  // namespace tiv::host
