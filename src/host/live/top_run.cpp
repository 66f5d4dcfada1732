// Start, watch, end.
#include "host/live/top_run.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/console.h"
#include "host/exit_codes.h"

namespace tiv::host {

namespace {

constexpr std::chrono::milliseconds WATCH_INTERVAL{100};

}  // namespace

TopRun::TopRun(std::vector<DeviceJob> jobs, const CollectOptions& options, CollectionView& view)
    : jobs_(std::move(jobs)),
      drainTimeout_(options.drainTimeout),
      view_(view),
      link_(options.wait, [this](std::chrono::milliseconds time) { return !stop_.Wait(time); }) {}

void TopRun::Report(const std::string& message) {
    view_.Clear();
    Say(stderr, fmt::format("tivctl: {}\n", message));
}

void TopRun::Show(const std::string& phase) {
    Progress progress;
    progress.phase = phase;
    progress.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - startedAt_);
    for (const auto& run : runs_) {
        progress.bytes += run->Bytes();
    }
    view_.Show(progress);
}

bool TopRun::StartAll() {
    const GiveUp giveUp = [this] { return starting_ && stop_.Asked(); };
    const TapFiles tap = [this](int device, ChunkSink& files) { return view_.Tap(device, files); };
    for (const DeviceJob& job : jobs_) {
        runs_.push_back(std::make_unique<DeviceRun>(link_, job, "", giveUp, tap));
        DeviceRun& run = *runs_.back();
        if (!run.Connect() || !run.Start()) {
            Report(stop_.Asked() ? "left before the job began" : run.Failure());
            return false;
        }
    }
    starting_ = false;
    startedAt_ = std::chrono::steady_clock::now();
    return true;
}

// True when the person quits, false when a session ends before.
bool TopRun::Watch() {
    while (std::all_of(runs_.begin(), runs_.end(), [](const auto& run) { return run->Alive(); })) {
        Show("live");
        if (stop_.Wait(WATCH_INTERVAL)) {
            return true;
        }
    }
    Report("a session ended: the daemon died or the link broke; see the daemon's log");
    return false;
}

// Once, when the end takes long.
void TopRun::SayHowToLeave() {
    if (slowEnd_.IsNews(SlowEnd::Clock::now())) {
        Report("ending the job; press Ctrl-C to leave at once");
    }
}

// Every device is told to stop, also when another one failed.
bool TopRun::EndAll() {
    view_.Clear();
    slowEnd_.Begin(SlowEnd::Clock::now());
    std::vector<DeviceRun*> stopped;
    for (const auto& run : runs_) {
        if (run->Stop()) {
            stopped.push_back(run.get());
        } else {
            Report(run->Failure());
            run->Abandon();
        }
    }
    bool all = stopped.size() == runs_.size();
    for (DeviceRun* run : stopped) {
        if (!run->Drain(drainTimeout_, [this] { SayHowToLeave(); })) {
            Report(run->Failure());
            all = false;
        }
    }
    return all;
}

int TopRun::Run() {
    if (!StartAll()) {
        // The daemon ends the jobs of those that had started when their sessions close.
        return stop_.Asked() ? EXIT_INTERRUPTED : EXIT_REFUSED;
    }
    const bool watched = Watch();
    const bool ended = EndAll();
    return watched && ended ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

}  // namespace tiv::host
