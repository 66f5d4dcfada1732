// The course of a job that is watched and not kept.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/collection_view.h"
#include "host/device_link.h"
#include "host/device_run.h"
#include "host/job_plan.h"
#include "host/live/slow_end.h"
#include "host/stop_signal.h"

namespace tiv::host {

// Starts the jobs of a plan, shows what comes until the person quits or a session ends, and ends
// the jobs properly: the daemon has stopped every sampler when Run returns. Nothing is written
// anywhere. One object per run; one thread.
class TopRun {
 public:
    // `view` is borrowed; its taps keep nothing.
    // Of `options` the times to wait count.
    TopRun(std::vector<DeviceJob> jobs, const CollectOptions& options, CollectionView& view);

    // Returns the exit code. Messages for people go to standard error.
    int Run();

 private:
    bool StartAll();
    bool Watch();
    bool EndAll();
    void SayHowToLeave();
    void Show(const std::string& phase);
    void Report(const std::string& message);

    const std::vector<DeviceJob> jobs_;
    const std::chrono::milliseconds drainTimeout_;
    CollectionView& view_;
    StopSignal stop_;
    DeviceLink link_;  // outlives the runs
    bool starting_ = true;
    std::vector<std::unique_ptr<DeviceRun>> runs_;
    std::chrono::steady_clock::time_point startedAt_;
    SlowEnd slowEnd_;
};

}  // namespace tiv::host
