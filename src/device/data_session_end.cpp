// The orderly end of a job's data session.
#include "device/data_session_end.h"

#include <exception>
#include <memory>

#include "message/codec.h"
#include "message/job_context.h"
#include "message/profiler.pb.h"
#include "platform/log.h"
#include "transport/uploader.h"
#include "transport/uploader_mgr.h"

namespace analysis::rokt::device {
namespace {

std::string EncodeFinish(int32_t devIndexId, const std::string& jobId) {
    message::JobContext jobCtx;
    jobCtx.dev_id = std::to_string(devIndexId);
    jobCtx.job_id = jobId;
    auto finish = std::make_shared<proto::DataChannelFinish>();
    finish->mutable_hdr()->set_job_ctx(jobCtx.ToString());
    return message::Codec::EncodeMessage(finish);
}

int QueueFinish(transport::Uploader& uploader, int32_t devIndexId, const std::string& jobId) {
    try {
        const std::string finish = EncodeFinish(devIndexId, jobId);
        return uploader.UploadData(finish.c_str(), static_cast<int>(finish.size()));
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return -1;
    }
}

}  // namespace

int FinishDataSession(int32_t devIndexId, const std::string& jobId) {
    TIV_LOGI("Entering device(%d) FinishCollection...jobId:%s", devIndexId, jobId.c_str());
    // This reference outlives the one of the table, so that the uploader's thread is joined here
    // and not under the lock of all uploaders.
    std::shared_ptr<transport::Uploader> uploader;
    auto& uploaders = transport::UploaderMgr::Instance();
    uploaders.GetUploader(jobId, uploader);
    if (uploader != nullptr) {
        TIV_LOGI("Release device(%d) uploader.", devIndexId);
        const int ret = QueueFinish(*uploader, devIndexId, jobId);
        if (ret != 0) {
            TIV_LOGI("Upload data failed when collection finished");
            return ret;
        }
        uploader->Flush();
        TIV_LOGI("Device(%d) data session finished", devIndexId);
    }
    TIV_LOGI("reset device(%d) uploader.", devIndexId);
    uploaders.DelUploader(jobId);
    TIV_LOGI("Device(%d) leaving finish_collection...", devIndexId);
    return 0;
}

}  // namespace analysis::rokt::device
