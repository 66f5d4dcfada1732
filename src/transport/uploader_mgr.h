// The process-wide table of uploaders.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "common/singleton.h"
#include "hdc/file_chunk.h"
#include "hdc/i_transport.h"
#include "message/job_context.h"
#include "platform/mutex.h"
#include "transport/uploader.h"

namespace analysis {
namespace rokt {
namespace transport {

// What UploadCtrlFileData needs to know about the file that its data belongs to.
struct FileChunkInfo {
    std::string fileName;
    bool isLastChunk = false;
    uint32_t chunkModule = 0;
};

// Finds the uploader of a job by the job id of its data session, and the job of a device and mode.
//
// One mutex guards both tables and is not held across a push of data: GetUploader copies the
// pointer out, so that a full queue blocks its own producers only, and an uploader removed during a
// push lives until that push returns. DelUploader alone lets an uploader go, and so joins its
// thread, under the mutex; all other removals end uploaders after unlocking.
class UploaderMgr : public common::singleton::Singleton<UploaderMgr> {
    friend class common::singleton::Singleton<UploaderMgr>;

 public:
    ~UploaderMgr() override;
    UploaderMgr(const UploaderMgr&) = delete;
    UploaderMgr& operator=(const UploaderMgr&) = delete;

    // Always 0.
    int Init();
    // Empties both tables; always 0.
    int Uninit();

    // A later job on the same device and mode takes the earlier one's place.
    void UpdateDevModeJobMap(uint32_t devId, const std::string& mode, const std::string& jobId);
    // The job id, or the empty string.
    std::string GetJobId(uint32_t devId, const std::string& mode);

    // Makes, starts and files an uploader for `capacity` chunks. 0, or the failure's result.
    [[nodiscard]] int CreateUploader(const std::string& id,
                                     const std::shared_ptr<ITransport>& transport, size_t capacity);
    // Files an uploader in place of an earlier one, which ends. An empty id or a null uploader is
    // ignored.
    void AddUploader(const std::string& id, const std::shared_ptr<Uploader>& uploader);
    // Both of the above, for the uploader of a session that `answer` accepts. `answer` runs first
    // and under the mutex: it puts the answer into the queue, which must be empty, and calls
    // nothing of this table. Whoever is told by the answer and asks for the uploader so waits until
    // it's filed.
    void AnswerAndAdd(uint32_t devId, const std::string& mode, const std::string& jobId,
                      const std::shared_ptr<Uploader>& uploader,
                      const std::function<void()>& answer);
    // Leaves `uploader` as it was when there is none.
    void GetUploader(const std::string& id, std::shared_ptr<Uploader>& uploader);
    void DelUploader(const std::string& id);
    // Always 0.
    int DelAllUploader();

    // Queue data for the job `id`; -1 when it has no uploader or the uploader refuses. Block while
    // the uploader's queue is full.
    [[nodiscard]] int UploadData(const std::string& id, const void* data, int len);
    [[nodiscard]] int UploadData(const std::string& id,
                                 const std::shared_ptr<ProfileFileChunk>& chunk);
    // Makes a chunk of `data` under the job and device of `jobCtx` and queues it. No tag is added
    // to the file name.
    [[nodiscard]] int UploadCtrlFileData(const std::string& id, const std::string& data,
                                         const FileChunkInfo& info,
                                         const std::shared_ptr<message::JobContext>& jobCtx);

 protected:
    UploaderMgr() = default;

 private:
    bool HasUploaders() EXCLUDES(mutex_);
    void Clear() EXCLUDES(mutex_);
    void PutJobId(const std::string& key, const std::string& jobId) REQUIRES(mutex_);
    // Gives back the uploader that had the place: it ends with the last reference, which the caller
    // lets go after unlocking.
    [[nodiscard]] std::shared_ptr<Uploader> PutUploader(const std::string& id,
                                                        const std::shared_ptr<Uploader>& uploader)
        REQUIRES(mutex_);

    std::map<std::string, std::shared_ptr<Uploader>> uploaderMap_ GUARDED_BY(mutex_);
    tiv::Mutex mutex_;
    std::map<std::string, std::string> devModeJobMap_ GUARDED_BY(mutex_);
};

}  // namespace transport
}  // namespace rokt
}  // namespace analysis
