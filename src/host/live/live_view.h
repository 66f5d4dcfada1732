// The live view of a running job.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/collection_view.h"
#include "host/job_plan.h"
#include "host/live/live_feed.h"
#include "host/live/live_snapshot.h"
#include "platform/mutex.h"

namespace tiv::host {

class Screen;

struct LiveOptions {
    std::string title;  // "tivctl top"
    bool keepsFiles = true;
    bool samplesCpu = false;
    bool samplesMemory = false;
    bool samplesProcesses = false;
    bool samplesChannels = false;
    std::chrono::milliseconds interval{100};
    uint64_t pageBytes = 4096;
    uint64_t ticksPerSecond = 100;
};

// Options for a view of these jobs.
[[nodiscard]] LiveOptions MakeLiveOptions(const std::string& title,
                                          const std::vector<DeviceJob>& jobs,
                                          const CollectOptions& asked);

// Shows on a full screen what comes through its taps, from the first Show to the first Clear; from
// then on, or when there can be no screen, it hands on to `after`, a view that leaves room for
// messages. The screen is painted by a thread of the view's own, four times a second at most, so
// that neither a slow terminal nor the reading of chunks holds anybody up.
//
//   q      ends the job as Ctrl-C does
//   c m p  order the processes by CPU, memory or process id
//   space  holds the picture while the stream goes on
class LiveView : public CollectionView {
 public:
    // `after` is borrowed.
    LiveView(LiveOptions options, CollectionView& after);
    ~LiveView() override;

    void Show(const Progress& progress) override;
    void Clear() override;
    std::unique_ptr<ChunkSink> Tap(int deviceId, ChunkSink& files) override;

 private:
    class Painter;

    void Begin();
    void EndUnseen() const;
    void Run();

    const LiveOptions options_;
    CollectionView& after_;
    LiveFeed feed_;
    bool hasBegun_ = false;
    const int wakeFd_;                // readable: the painter is to end
    std::unique_ptr<Screen> screen_;  // the painter's while it runs
    std::thread painter_;

    Mutex mutex_;
    Progress progress_ GUARDED_BY(mutex_);
};

}  // namespace tiv::host
