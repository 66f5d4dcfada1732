// The thread that reads chunks and paints.
#include "host/live/live_view.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <exception>

#include "host/console.h"
#include "host/host_clock.h"
#include "host/live/live_layout.h"
#include "host/live/live_model.h"
#include "host/live/live_reader.h"
#include "host/live/screen.h"

namespace tiv::host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int WAIT_MS = 50;
constexpr std::chrono::milliseconds FRAME_INTERVAL{250};
constexpr std::chrono::milliseconds COUNT_INTERVAL{1000};
// A file of a process that has not grown for as long as several of its buffers take is dropped.
constexpr uint64_t IDLE_INTERVALS = 400;

bool WantsColours() {
    const char* off = std::getenv("NO_COLOR");
    return off == nullptr || *off == '\0';
}

}  // namespace

// Everything that the painting thread has for itself.
class LiveView::Painter {
 public:
    Painter(const LiveOptions& options, LiveFeed& feed)
        : options_(options),
          feed_(feed),
          model_(options.interval),
          reader_(model_, options.pageBytes, options.ticksPerSecond),
          charset_(LocaleCharset()),
          colours_(WantsColours()) {}

    void Read() {
        for (const LiveChunk& chunk : feed_.Take()) {
            reader_.Read(chunk);
        }
        const auto now = Clock::now();
        if (now - counted_ < COUNT_INTERVAL) {
            return;
        }
        counted_ = now;
        const uint64_t idleNs =
            IDLE_INTERVALS *
            static_cast<uint64_t>(std::chrono::nanoseconds(options_.interval).count());
        const uint64_t nowNs = RawClockNs();
        reader_.Prune(nowNs - std::min(nowNs, idleNs));
        model_.Prune();
        model_.TakeCounts(feed_.Counts(), nowNs);
    }

    // True when a key changes the picture.
    bool TakeKeys(const std::string& keys) {
        for (const char key : keys) {
            if (key == 'q' && !hasQuit_) {
                hasQuit_ = true;
                (void)kill(getpid(), SIGINT);
            } else if (key == 'c' || key == 'm' || key == 'p') {
                order_ = key == 'c'   ? ProcessOrder::CPU
                         : key == 'm' ? ProcessOrder::MEMORY
                                      : ProcessOrder::PID;
            } else if (key == ' ') {
                isPaused_ = !isPaused_;
            }
        }
        return !keys.empty();
    }

    void Paint(Screen& screen, const Progress& progress) {
        if (!isPaused_ || held_.title.empty()) {
            held_ = Snapshot(progress);
        }
        held_.paused = isPaused_;
        std::vector<std::string> lines;
        for (const ScreenLine& line : LayOut(held_, screen.Size(), charset_)) {
            lines.push_back(line.Painted(colours_));
        }
        skippedFrames_ += screen.Show(lines) ? 0 : 1;
    }

 private:
    LiveSnapshot Snapshot(const Progress& progress) {
        LiveSnapshot snapshot;
        snapshot.title = options_.title;
        snapshot.phase = progress.phase;
        snapshot.elapsed = progress.elapsed;
        snapshot.total = progress.total;
        snapshot.samplesCpu = options_.samplesCpu;
        snapshot.samplesMemory = options_.samplesMemory;
        snapshot.samplesProcesses = options_.samplesProcesses;
        snapshot.samplesChannels = options_.samplesChannels;
        snapshot.order = order_;
        model_.Fill(snapshot, RawClockNs());
        const FeedCounts counts = feed_.Counts();
        snapshot.bytes = counts.bytes;
        snapshot.queue = {counts.waiting, counts.waitingBytes, counts.mostWaiting,
                          counts.skipped, skippedFrames_,      reader_.Unreadable()};
        return snapshot;
    }

    const LiveOptions& options_;
    LiveFeed& feed_;
    LiveModel model_;
    LiveReader reader_;
    const Charset charset_;
    const bool colours_;
    Clock::time_point counted_{};
    ProcessOrder order_ = ProcessOrder::CPU;
    bool isPaused_ = false;
    bool hasQuit_ = false;
    LiveSnapshot held_;
    uint64_t skippedFrames_ = 0;
};

LiveOptions MakeLiveOptions(const std::string& title, const std::vector<DeviceJob>& jobs,
                            const CollectOptions& asked) {
    LiveOptions options;
    options.title = title;
    options.interval = asked.interval;
    options.pageBytes = static_cast<uint64_t>(asked.pageBytes);
    options.ticksPerSecond = static_cast<uint64_t>(asked.ticksPerSecond);
    for (const DeviceJob& job : jobs) {
        const auto samples = [&job](const char* name) {
            return std::find(job.samplers.begin(), job.samplers.end(), name) != job.samplers.end();
        };
        options.samplesCpu = options.samplesCpu || samples("cpu");
        options.samplesMemory = options.samplesMemory || samples("memory");
        options.samplesProcesses = options.samplesProcesses || samples("processes");
        options.samplesChannels = options.samplesChannels || samples("llc");
    }
    return options;
}

LiveView::LiveView(LiveOptions options, CollectionView& after)
    : options_(std::move(options)),
      after_(after),
      wakeFd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

LiveView::~LiveView() {
    LiveView::Clear();
    close(wakeFd_);
}

std::unique_ptr<ChunkSink> LiveView::Tap(int deviceId, ChunkSink& files) {
    return std::make_unique<LiveTap>(feed_, deviceId, options_.keepsFiles ? &files : nullptr);
}

void LiveView::Show(const Progress& progress) {
    {
        MutexLock lock(mutex_);
        progress_ = progress;
    }
    if (!hasBegun_) {
        Begin();
    }
    if (!painter_.joinable()) {
        after_.Show(progress);
    }
}

void LiveView::Begin() {
    hasBegun_ = true;
    std::string error;
    try {
        screen_ = Screen::Open(error);
        if (screen_ != nullptr) {
            painter_ = std::thread([this] { Run(); });
            return;
        }
    } catch (const std::exception& e) {  // no memory, or no thread for the painter
        error = e.what();
        screen_.reset();
    }
    Say(stderr, "tivctl: no live view: " + error + "\n");
    EndUnseen();
}

// Where nobody sees anything, only files are worth going on for.
void LiveView::EndUnseen() const {
    if (!options_.keepsFiles) {
        (void)kill(getpid(), SIGINT);
    }
}

void LiveView::Clear() {
    if (painter_.joinable()) {
        const uint64_t one = 1;
        const ssize_t written = write(wakeFd_, &one, sizeof(one));
        (void)written;  // one write does not fill the counter
        painter_.join();
        screen_.reset();
    }
    after_.Clear();
}

void LiveView::Run() {
    Screen::BlockSignals();
    try {
        Painter painter(options_, feed_);
        auto nextFrame = Clock::now();
        for (uint64_t woken = 0; read(wakeFd_, &woken, sizeof(woken)) < 0 && !screen_->IsLeft();) {
            painter.Read();
            const bool isPressed = painter.TakeKeys(screen_->Keys());
            if (isPressed || Clock::now() >= nextFrame) {
                nextFrame = Clock::now() + FRAME_INTERVAL;
                Progress progress;
                {
                    MutexLock lock(mutex_);
                    progress = progress_;
                }
                painter.Paint(*screen_, progress);
            }
            screen_->Flush();
            screen_->Wait(wakeFd_, WAIT_MS);
        }
    } catch (const std::exception&) {
        // Without memory for the picture the job goes on without one.
    }
    if (screen_->IsGone()) {
        EndUnseen();
    }
}

}  // namespace tiv::host
