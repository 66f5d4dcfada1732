// Running the helper script, and the upload of what it wrote.
#include "job_wrapper/perf_script.h"

#include <fcntl.h>

#include <exception>

#include "common/utils.h"
#include "hdc/file_chunk.h"
#include "platform/bounds_checked.h"
#include "platform/log.h"
#include "transport/uploader_mgr.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

using analysis::rokt::ProfileFileChunk;
using analysis::rokt::common::utils::Utils;
using analysis::rokt::transport::UploaderMgr;

namespace {

constexpr uint32_t DATA_FILE_MODE = 0640;

std::shared_ptr<ProfileFileChunk> MakeSlice(const char* data, size_t size,
                                            const PerfUpload& upload) {
    std::shared_ptr<ProfileFileChunk> chunk;
    try {
        chunk = std::make_shared<ProfileFileChunk>();
        chunk->chunk.assign(data, size);
        chunk->fileName = upload.name + "." + upload.jobCtx->tag;
        chunk->extraInfo = upload.jobCtx->job_id + "." + upload.jobCtx->dev_id;
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return nullptr;
    }
    chunk->offset = -1;
    chunk->chunkSize = size;
    chunk->isLastChunk = false;
    chunk->chunkModule = analysis::rokt::PROFILING_IS_FROM_DEVICE;
    return chunk;
}

}  // namespace

int RunPerfScript(const std::vector<std::string>& arguments, const std::string& stdoutFile,
                  int& exitCode) {
    std::vector<std::string> argv = {PERF_SCRIPT};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    mmProcess pid = -1;
    exitCode = 0;
    return Utils::ExecCmd({PERF_SUDO, false, stdoutFile}, argv, {PERF_PATH_ENTRY}, exitCode, pid);
}

int StartPerfCommand(const std::vector<std::string>& command, const char* pathEntry,
                     const std::string& stdoutFile, mmProcess& pid) {
    const std::vector<std::string> argv(command.begin() + 1, command.end());
    int exitCode = 0;
    return Utils::ExecCmd({command.front(), true, stdoutFile}, argv, {pathEntry}, exitCode, pid);
}

int KillPerf() {
    int exitCode = 0;
    const int ret = RunPerfScript({"--kill"}, "", exitCode);
    if (ret != 0) {
        TIV_LOGE("Failed to kill process perf, ret=%d", ret);
    } else {
        TIV_LOGI("Succeeded to kill process, ret=%d, exitCode=%d", ret, exitCode);
    }
    return ret;
}

PerfFile MakePerfFile(const std::string& dir, const std::string& file) {
    if (Utils::CreateDir(dir) != 0) {
        TIV_LOGE("Creating dir: %s err!", dir.c_str());
        return PerfFile::NO_DIRECTORY;
    }
    const int32_t fd =
        mmOpen2(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, DATA_FILE_MODE);
    if (fd < 0) {
        return PerfFile::NO_FILE;
    }
    (void)mmClose(fd);
    return PerfFile::MADE;
}

int64_t UploadSlices(std::ifstream& file, char* buffer, uint32_t bufferBytes,
                     const PerfUpload& upload) {
    int64_t total = 0;
    while (file.good()) {
        (void)memset_s(buffer, bufferBytes, 0, bufferBytes);
        file.read(buffer, static_cast<std::streamsize>(bufferBytes - 1));
        const auto size = static_cast<size_t>(file.gcount());
        auto chunk = MakeSlice(buffer, size, upload);
        if (chunk == nullptr) {
            break;
        }
        if (UploaderMgr::Instance().UploadData(upload.jobId, chunk) != 0) {
            upload.logFailed(upload.jobId);
        }
        total += static_cast<int64_t>(size);
    }
    return total;
}

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
