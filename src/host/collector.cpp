// The course of a collection.
#include "host/collector.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "common/utils.h"
#include "host/console.h"
#include "host/exit_codes.h"

namespace tiv::host {

using analysis::rokt::common::utils::Utils;

namespace {

constexpr std::chrono::milliseconds WATCH_INTERVAL{100};
constexpr size_t PID_TEXT_WIDTH = 8;

}  // namespace

Collector::Collector(JobPlan plan, CollectOptions options, bool quiet, CollectionView* view)
    : plan_(std::move(plan)),
      options_(std::move(options)),
      progress_(quiet),
      view_(view == nullptr ? progress_ : *view),
      link_(options_.wait, [this](std::chrono::milliseconds time) { return !stop_.Wait(time); }) {
    record_.asked = options_.duration;
    record_.started = std::chrono::system_clock::now();
    startedAt_ = std::chrono::steady_clock::now();
}

void Collector::Report(const std::string& message) {
    view_.Clear();
    Say(stderr, fmt::format("tivctl: {}\n", message));
}

bool Collector::MakeResult() {
    const std::string pid = fmt::format("{:0>{}}", getpid(), PID_TEXT_WIDTH);
    const std::string path = options_.output + "/" + Utils::CreateResultPath(0, pid);
    std::error_code error;
    std::filesystem::create_directories(options_.output, error);
    if (!error && !std::filesystem::create_directory(path, error) && !error) {
        error = std::make_error_code(std::errc::file_exists);  // it is another run's
    }
    if (error) {
        Report(fmt::format("cannot create {}: {}; choose another directory with --output", path,
                           error.message()));
        return false;
    }
    directory_ = path;
    return MakeDirectories(path) && SaveManifest();
}

bool Collector::MakeDirectories(const std::string& path) {
    const GiveUp giveUp = [this] { return starting_ && stop_.Asked(); };
    const TapFiles tap = [this](int device, ChunkSink& files) { return view_.Tap(device, files); };
    for (const DeviceJob& job : plan_.jobs) {
        const std::string device = path + "/" + Utils::CreateTaskId(std::to_string(job.deviceId));
        std::error_code error;
        std::filesystem::create_directory(device, error);
        if (error) {
            Report(fmt::format("cannot create {}: {}; choose another directory with --output",
                               device, error.message()));
            return false;
        }
        runs_.push_back(std::make_unique<DeviceRun>(link_, job, device, giveUp, tap));
    }
    return true;
}

bool Collector::SaveManifest() {
    const std::string error = WriteManifest(directory_, record_, runs_);
    if (!error.empty()) {
        Report(error);
    }
    return error.empty();
}

bool Collector::StartAll() {
    for (const auto& run : runs_) {
        if (!run->Connect() || !run->Start()) {
            Report(stop_.Asked() ? "left before the collection began; nothing is kept"
                                 : run->Failure());
            return false;
        }
    }
    starting_ = false;
    startedAt_ = std::chrono::steady_clock::now();
    return true;
}

bool Collector::AllAlive() {
    return std::all_of(runs_.begin(), runs_.end(), [](const auto& run) { return run->Alive(); });
}

void Collector::ShowProgress(const std::string& phase) {
    Progress progress;
    progress.phase = phase;
    progress.elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - startedAt_);
    progress.total = options_.duration;
    for (const auto& run : runs_) {
        progress.bytes += run->Bytes();
        progress.files += run->Files().FileCount();
    }
    view_.Show(progress);
}

void Collector::Collect() {
    const auto end = startedAt_ + options_.duration;
    while (AllAlive()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return;
        }
        if (stop_.Wait(std::min(left, WATCH_INTERVAL))) {
            record_.stoppedEarly = true;
            SayHowToLeave();
            return;
        }
        ShowProgress("collecting");
    }
    Report("a session ended in the middle of the collection; keeping what arrived");
}

// Every device is told to stop, also when another one failed.
bool Collector::StopAll() {
    bool all = true;
    for (const auto& run : runs_) {
        if (!run->Stop()) {
            Report(run->Failure());
            run->Abandon();
            all = false;
        }
    }
    return all;
}

// The rest of the data may take long on a slow link; Ctrl-C alone does not cut it off.
void Collector::SayHowToLeave() {
    if (stop_.Asked() && !saidHowToLeave_) {
        Report("ending the job; press Ctrl-C again to leave at once");
        saidHowToLeave_ = true;
    }
}

bool Collector::DrainAll() {
    bool all = true;
    for (const auto& run : runs_) {
        const bool drained = run->Drain([this] {
            ShowProgress("draining");
            SayHowToLeave();
            return true;
        });
        if (!drained) {
            Report(run->Failure());
            all = false;
        }
    }
    return all;
}

bool Collector::WritingFailed() {
    return std::any_of(runs_.begin(), runs_.end(),
                       [](const auto& run) { return !run->Files().Error().empty(); });
}

// The directory is this run's own: it did not exist before.
void Collector::RemoveResult() {
    if (!directory_.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(directory_, ignored);
        directory_.clear();
    }
}

// One device that does not start means that no device is asked to collect. The daemon ends the
// jobs of those that had started when their sessions close.
int Collector::LeaveWithoutResult() {
    for (const auto& run : runs_) {
        run->Abandon();
    }
    runs_.clear();  // their sessions write into the directory
    RemoveResult();
    return stop_.Asked() ? EXIT_INTERRUPTED : EXIT_REFUSED;
}

int Collector::Finish(bool drained) {
    for (const auto& run : runs_) {
        run->Abandon();
    }
    record_.running = false;
    record_.ended = std::chrono::system_clock::now();
    const bool saved = SaveManifest();
    view_.Clear();
    if (!saved || WritingFailed()) {
        return EXIT_LOCAL_ERROR;
    }
    const bool complete = drained && std::all_of(runs_.begin(), runs_.end(),
                                                 [](const auto& run) { return run->Complete(); });
    return complete ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

int Collector::Run() {
    if (!MakeResult()) {
        RemoveResult();
        return EXIT_LOCAL_ERROR;
    }
    if (!StartAll()) {
        return LeaveWithoutResult();
    }
    Collect();
    const bool stopped = StopAll();
    const bool drained = DrainAll() && stopped;
    return Finish(drained);
}

}  // namespace tiv::host
