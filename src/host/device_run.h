// One device's part of a collection: both sessions, the job's steps, and what came of them.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "host/control_session.h"
#include "host/data_session.h"
#include "host/device_link.h"
#include "host/job_plan.h"
#include "host/result_files.h"

namespace tiv::host {

// Makes a sink that stands in front of a device's files, or null for none.
using TapFiles = std::function<std::unique_ptr<ChunkSink>(int deviceId, ChunkSink& files)>;

// Drives one job on one device. The steps are made in the order of the declarations by one thread;
// each returns false when it failed and then Failure tells why. After a failed step the run is
// ended with Abandon or by its destructor; what arrived until then is kept.
class DeviceRun {
 public:
    // `link` outlives the run. `directory` is the device's own directory, which exists. `giveUp`
    // ends the waits for answers early. `tap` may put a sink in front of the files, which then gets
    // every chunk and decides whether the files get it, too.
    DeviceRun(DeviceLink& link, DeviceJob job, std::string directory, GiveUp giveUp = {},
              const TapFiles& tap = {});
    ~DeviceRun();
    DeviceRun(const DeviceRun&) = delete;
    DeviceRun& operator=(const DeviceRun&) = delete;

    // Opens the control and the data session.
    [[nodiscard]] bool Connect();
    // Starts the job and its first replay: from here on the device collects.
    [[nodiscard]] bool Start();
    // Ends a replay, or begins another one on the same job.
    [[nodiscard]] bool StopReplay();
    [[nodiscard]] bool StartReplay();
    // True when the daemon behind the sessions is a process of this machine.
    [[nodiscard]] bool IsHere() const { return isHere_; }
    // True while both sessions are open.
    [[nodiscard]] bool Alive();
    // Ends the replay that runs and the job, without waiting for the rest of the data. A device
    // that is lost need not be told; Drain tells of it.
    [[nodiscard]] bool Stop();
    // Waits for the rest of the data and the answer to the stop. The wait goes on as long as data
    // arrives; `patience` without any, counted from the stop and anew from each arrival, ends it.
    // `onWait` is called several times a second.
    template <class OnWait>
    [[nodiscard]] bool Drain(std::chrono::milliseconds patience, OnWait onWait);

    // Closes both sessions.
    void Abandon();

    // Every step of the job succeeded, and everything the device had to send has arrived and was
    // written under its own name.
    [[nodiscard]] bool Complete();

    [[nodiscard]] const DeviceJob& Job() const { return job_; }
    [[nodiscard]] const std::string& Directory() const { return directory_; }
    [[nodiscard]] const std::string& Failure() const { return failure_; }
    [[nodiscard]] bool FinishArrived();
    [[nodiscard]] uint64_t Bytes() const;
    [[nodiscard]] uint64_t Chunks() const;
    ResultFiles& Files() { return files_; }

 private:
    enum class DrainStep { GO_ON, DONE, FAILED };
    bool Check(const Reply& reply);
    DrainStep DrainOnce(std::chrono::milliseconds patience);
    bool TakeStopAnswer();
    bool IsLost();
    void NoteDataFailure();

    DeviceLink& link_;
    const DeviceJob job_;
    const std::string directory_;
    const GiveUp giveUp_;
    ResultFiles files_;
    const std::unique_ptr<ChunkSink> tap_;  // outlives the session; mostly null
    std::unique_ptr<DataSession> data_;
    std::unique_ptr<ControlSession> control_;
    std::string failure_;
    bool isHere_ = false;
    bool stopAccepted_ = false;
    bool replaying_ = false;
    int replayId_ = -1;  // of the last replay that was started; they count from 0
    std::chrono::steady_clock::time_point stoppedAt_;  // when the job stop was sent
};

template <class OnWait>
bool DeviceRun::Drain(std::chrono::milliseconds patience, OnWait onWait) {
    while (true) {
        const DrainStep step = DrainOnce(patience);
        if (step != DrainStep::GO_ON) {
            return step == DrainStep::DONE;
        }
        onWait();
    }
}

}  // namespace tiv::host
