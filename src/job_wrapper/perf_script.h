// The privileged helper script, as the jobs that run it see it, and the upload of what it wrote.
#pragma once

#include <cstdint>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "message/job_context.h"
#include "platform/mm_api.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

constexpr const char* PERF_SUDO = "sudo";
constexpr const char* PERF_SCRIPT = "/var/prof_collect.sh";
// The whole environment of a child. The statistic's start has an entry of its own.
constexpr const char* PERF_PATH_ENTRY = "PATH=/usr/bin:/usr/sbin:/var";
constexpr const char* PERF_STAT_PATH_ENTRY = "PATH=/usr/bin/:/usr/sbin:/var";

// Bytes of a buffer for files of the script; the last one stays zero.
constexpr uint32_t PERF_BUFFER_BYTES = 262145;

// Runs the script to its end with `arguments`; its output goes to `stdoutFile` unless that is
// empty. 0 with the script's exit code, or -1.
[[nodiscard]] int RunPerfScript(const std::vector<std::string>& arguments,
                                const std::string& stdoutFile, int& exitCode);

// Starts `command`, a program and its arguments parted by blanks, and does not wait for it. No
// shell comes in between: a blank inside an event parts arguments, and that is all it does.
[[nodiscard]] int StartPerfCommand(const std::vector<std::string>& command, const char* pathEntry,
                                   const std::string& stdoutFile, mmProcess& pid);

// Tells the script to end its recorders, whether or not any runs. 0 or -1.
int KillPerf();

enum class PerfFile { MADE, NO_DIRECTORY, NO_FILE };
// Makes the directory and, empty, the data file in it that the script is to fill. The directory's
// error is logged here, the file's is left to the caller.
[[nodiscard]] PerfFile MakePerfFile(const std::string& dir, const std::string& file);

// Where slices of a file go, and under which names.
struct PerfUpload {
    std::string name;                             // of the data file at the host, without the tag
    std::string jobId;                            // of the uploader
    void (*logFailed)(const std::string& jobId);  // for a refused slice
    std::shared_ptr<analysis::rokt::message::JobContext> jobCtx;
};

// Sends the rest of `file` in slices of `bufferBytes` - 1 bytes at most, each in a chunk of its
// own. A file whose size is a multiple of that ends with an empty chunk, since the end shows only
// at the read behind it. A refused slice is logged and lost. Returns the bytes read. Blocks while
// the uploader's queue is full.
int64_t UploadSlices(std::ifstream& file, char* buffer, uint32_t bufferBytes,
                     const PerfUpload& upload);

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
