// The course of a collection.
#include "host/collector.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <thread>

#include "common/utils.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/result_files.h"

namespace tiv::host {

using analysis::rokt::common::utils::Utils;

namespace {

constexpr std::chrono::milliseconds WATCH_INTERVAL{100};
constexpr std::chrono::milliseconds COMMAND_WATCH_INTERVAL{10};
constexpr size_t PID_TEXT_WIDTH = 8;

// From the first start to the last stop.
std::optional<std::chrono::milliseconds> AskedTime(const CollectOptions& options) {
    if (!options.duration.has_value()) {
        return std::nullopt;
    }
    return *options.duration + (options.repeat - 1) * options.every.value_or(*options.duration);
}

}  // namespace

Collector::Collector(JobPlan plan, CollectOptions options, bool quiet, CollectionView* view)
    : plan_(std::move(plan)),
      options_(std::move(options)),
      progress_(quiet),
      view_(view == nullptr ? progress_ : *view),
      link_(options_.wait, [this](std::chrono::milliseconds time) { return !stop_.Wait(time); }),
      quiet_(quiet),
      keepsOutput_(view != nullptr),
      leaveCode_(EXIT_REFUSED) {
    record_.asked = AskedTime(options_);
    record_.command = options_.command;
    record_.pageBytes = options_.pageBytes;
    record_.ticksPerSecond = options_.ticksPerSecond;
    record_.started = std::chrono::system_clock::now();
    startedAt_ = std::chrono::steady_clock::now();
}

void Collector::Report(const std::string& message) {
    view_.Clear();
    Say(stderr, fmt::format("tivctl: {}\n", message));
}

bool Collector::MakeResult() {
    const std::string pid = fmt::format("{:0>{}}", getpid(), PID_TEXT_WIDTH);
    std::string path = options_.output + "/" + Utils::CreateResultPath(0, pid);
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
    directory_ = std::move(path);
    return MakeDirectories(directory_) && SaveManifest();
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
    if (!options_.command.empty() && !StartCommand()) {
        return false;
    }
    starting_ = false;
    startedAt_ = std::chrono::steady_clock::now();
    record_.clocks = ReadHostClocks();
    record_.replays.push_back({std::chrono::system_clock::now(), {}});
    return true;
}

// The devices collect already: nothing of the command's life is missed.
bool Collector::StartCommand() {
    const std::string log = keepsOutput_ ? directory_ + "/command.log" : "";
    const std::string error = command_.Start(options_.command, log);
    if (!error.empty()) {
        Report(error + "; nothing was collected");
        leaveCode_ = EXIT_USAGE;
        return false;
    }
    record_.runs = &command_;
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
    progress.total = record_.asked.value_or(std::chrono::milliseconds(0));
    for (const auto& run : runs_) {
        progress.bytes += run->Bytes();
        progress.files += run->Files().FileCount();
    }
    view_.Show(progress);
}

// Takes note of a Ctrl-C. True when it ends the collection: a command is told of it, too, and ends
// it when it ends itself.
bool Collector::TakeStop() {
    if (!record_.stoppedEarly) {
        record_.stoppedEarly = true;
        SayHowToLeave();
        if (!stop_.FromTerminal() || command_.HasOwnGroup()) {
            command_.Signal(stop_.Signal());
        }
    }
    return options_.command.empty();
}

// Of each device that is lost; why, its end tells.
void Collector::ReportEnded() {
    for (const auto& run : runs_) {
        if (!run->Alive()) {
            Report(fmt::format(
                "device {}: a session ended in the middle of the collection; keeping what arrived",
                run->Job().deviceId));
        }
    }
}

// Watches the sessions until `end`; without one only Ctrl-C and the command end the collection.
// True when the time is up, false when something else ended it.
bool Collector::PassTime(std::optional<std::chrono::steady_clock::time_point> end,
                         const std::string& phase) {
    const bool hasCommand = !options_.command.empty();
    while (AllAlive()) {
        const auto now = std::chrono::steady_clock::now();
        if (end.has_value() && now >= *end) {
            return true;
        }
        if (stop_.Asked() && TakeStop()) {
            return false;
        }
        if (hasCommand && !command_.Running()) {
            return false;
        }
        auto slice = hasCommand ? COMMAND_WATCH_INTERVAL : WATCH_INTERVAL;
        if (end.has_value()) {
            slice = std::min(slice, std::chrono::ceil<std::chrono::milliseconds>(*end - now));
        }
        if (stop_.Asked()) {
            std::this_thread::sleep_for(slice);  // for the command: waiting for the signal is over
        } else {
            (void)stop_.Wait(slice);
        }
        ShowProgress(phase);
    }
    ReportEnded();
    return false;
}

void Collector::EndReplayRecord() {
    if (!record_.replays.back().ended.has_value()) {
        record_.replays.back().ended = std::chrono::system_clock::now();
    }
}

// Ends the replay on every device and, when its time has come, begins the next one. False when a
// device did not take part in it or something ended the collection meanwhile.
bool Collector::NextReplay() {
    EndReplayRecord();
    for (const auto& run : runs_) {
        if (!run->StopReplay()) {
            Report(run->Failure());
            return false;
        }
    }
    const auto replays = static_cast<int>(record_.replays.size());
    const auto start = startedAt_ + replays * options_.every.value_or(*options_.duration);
    if (!PassTime(start, "pausing")) {
        return false;
    }
    for (const auto& run : runs_) {
        if (!run->StartReplay()) {
            Report(run->Failure());
            return false;
        }
    }
    record_.replays.push_back({std::chrono::system_clock::now(), {}});
    return true;
}

// True when its time is up, false when something ended the collection before.
bool Collector::RunReplay() {
    std::optional<std::chrono::steady_clock::time_point> end;
    if (options_.duration.has_value()) {
        end = std::chrono::steady_clock::now() + *options_.duration;
    }
    return PassTime(end, "collecting");
}

// False when a replay could not be ended or begun. One that Ctrl-C or the command ended is none of
// these, and what a lost session costs shows at the end of the job.
bool Collector::RunReplays() {
    bool good = true;
    bool goOn = RunReplay();
    while (goOn && static_cast<int>(record_.replays.size()) < options_.repeat) {
        good = NextReplay() || stop_.Asked();
        goOn = good && !stop_.Asked() && RunReplay();
    }
    EndReplayRecord();
    return good;
}

// After a collection that broke off the command may still run: its status belongs into the result.
void Collector::WaitForCommand() {
    while (command_.Running()) {
        if (stop_.Asked()) {
            (void)TakeStop();
            std::this_thread::sleep_for(COMMAND_WATCH_INTERVAL);
        } else {
            (void)stop_.Wait(COMMAND_WATCH_INTERVAL);
        }
        ShowProgress("waiting for the command");
    }
    if (record_.runs != nullptr && (!quiet_ || command_.ExitStatus() != 0)) {
        Report(fmt::format("{}: {}", Printable(options_.command.front()), command_.StatusText()));
    }
}

// Every device is told to stop, also when another one failed. Those that stop.
std::vector<DeviceRun*> Collector::StopAll() {
    std::vector<DeviceRun*> stopped;
    for (const auto& run : runs_) {
        if (run->Stop()) {
            stopped.push_back(run.get());
        } else {
            Report(run->Failure());
            run->Abandon();
        }
    }
    return stopped;
}

// The rest of the data may take long on a slow link; Ctrl-C alone does not cut it off.
void Collector::SayHowToLeave() {
    if (stop_.Asked() && !saidHowToLeave_) {
        Report(fmt::format(
            "{}; press Ctrl-C again to leave at once: what came so far stays in {}",
            command_.Running() ? "the job ends when the command does" : "ending the job",
            directory_));
        saidHowToLeave_ = true;
    }
}

bool Collector::DrainAll(const std::vector<DeviceRun*>& stopped) {
    bool all = true;
    for (DeviceRun* run : stopped) {
        const bool drained = run->Drain(options_.drainTimeout, [this] {
            ShowProgress("draining");
            SayHowToLeave();
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
    return stop_.Asked() ? EXIT_INTERRUPTED : leaveCode_;
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
    try {
        if (!MakeResult()) {
            RemoveResult();
            return EXIT_LOCAL_ERROR;
        }
        if (!StartAll()) {
            return LeaveWithoutResult();
        }
    } catch (...) {
        (void)LeaveWithoutResult();  // no thread, no memory: whoever called tells of it
        throw;
    }
    const bool replayed = RunReplays();
    const std::vector<DeviceRun*> stopped = StopAll();
    const bool drained = DrainAll(stopped);
    WaitForCommand();
    return Finish(replayed && drained && stopped.size() == runs_.size());
}

}  // namespace tiv::host
