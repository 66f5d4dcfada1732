// The thread that turns the recorder's files into text and uploads it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/chunk.h"
#include "common/thread.h"
#include "message/job_context.h"
#include "message/prof_params.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// Once a second it converts every finished record file to text through the script, sends the text,
// and removes both.
//
// The recorder still writes the file with the last name, so that one waits until another follows or
// the thread is told to stop: the pass behind the stop takes all files. Names sort as text. A file
// that cannot be converted or sent is removed all the same: the recorder does not wait.
//
// Between Start and the join in Stop, the buffer, the counter and the files belong to the thread;
// everything else belongs to the job that owns the task.
class PerfExtraTask : public analysis::rokt::common::thread::Thread {
 public:
    using JobContext = analysis::rokt::message::JobContext;
    using ProfileParams = analysis::rokt::message::ProfileParams;

    // `bufferSize` in bytes; one less is read at a time. `dir` has the record files and no dot in
    // its path.
    PerfExtraTask(uint32_t bufferSize, const std::string& dir,
                  const std::shared_ptr<JobContext>& jobContext,
                  const std::shared_ptr<ProfileParams>& sampleParams);
    ~PerfExtraTask() override;
    PerfExtraTask(const PerfExtraTask&) = delete;
    PerfExtraTask& operator=(const PerfExtraTask&) = delete;

    // Makes the buffer. 0; -1 for a host-side job, a second time, or when memory is short.
    [[nodiscard]] int Init();
    // Always 0. The task cannot be initialised again to any use: its buffer is gone for good.
    int Uninit();
    // Before Start. A null context is ignored.
    void SetJobCtx(const std::shared_ptr<JobContext>& jobContext);

 protected:
    void Run(const analysis::rokt::common::thread::ErrorContext& threadContext) override;

 private:
    void RunPass();
    void ConvertFinishedFiles();
    [[nodiscard]] std::vector<std::string> RecordFiles() const;
    void HandleFile(const std::string& file);
    void ConvertFile(const std::string& file, const std::string& textFile);
    void UploadFile(const std::string& textFile);

    bool isInited = false;
    int64_t dataSize = 0;  // bytes uploaded so far
    std::string retDir;
    analysis::rokt::common::memory::Chunk buf;
    std::shared_ptr<JobContext> jobCtx;
    std::shared_ptr<ProfileParams> params;
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
