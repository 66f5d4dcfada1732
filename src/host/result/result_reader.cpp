// From files to rows.
#include "host/result/result_reader.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/result/chunk_times_parser.h"
#include "host/result/process_parsers.h"
#include "host/result/profile_parser.h"
#include "host/result/system_cpu_parser.h"
#include "host/result/utf8_text.h"

namespace tiv::host {

namespace {

constexpr size_t BLOCK_BYTES = 256 << 10;
constexpr size_t MAX_PROBLEMS = 1000;

// Opens a regular file, without following a link as its last name. A descriptor, or -1 with the
// reason in `problem`.
int OpenRegular(const std::string& path, std::string& problem) {
    const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        problem = fmt::format("cannot be opened: {}", std::strerror(errno));
        return -1;
    }
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        problem = "is no regular file";
        close(fd);
        return -1;
    }
    return fd;
}

bool IsOfProcess(const FileFacts& file) {
    return file.kind == FileKind::PROCESS_CPU || file.kind == FileKind::PROCESS_MEMORY;
}

}  // namespace

void ResultReader::BeginProcess(const FileFacts& file) {
    const bool isSame = processOf_ != nullptr && IsOfProcess(file) &&
                        processOf_->deviceId == file.deviceId &&
                        processOf_->directory == file.directory && processOf_->pid == file.pid;
    if (!isSame) {
        EndProcess();
    }
    if (IsOfProcess(file) && !isSame) {
        processOf_ = &file;
        lives_ = std::make_unique<ProcessLives>(ParseContext{file.deviceId, visitor_, span_},
                                                file.pid, lastProcess_);
    }
}

void ResultReader::EndProcess() {
    if (lives_ != nullptr) {
        lives_->Finish();
        lives_.reset();
        processOf_ = nullptr;
    }
}

std::unique_ptr<FileParser> ResultReader::MakeParser(const FileFacts& file) {
    const ParseContext context{file.deviceId, visitor_, span_};
    if (keysOf_ != file.deviceId) {
        memoryKeys_ = MemoryKeys();
        keysOf_ = file.deviceId;
    }
    switch (file.kind) {
        case FileKind::SYSTEM_CPU:
            return std::make_unique<SystemCpuParser>(context);
        case FileKind::MEMORY:
            return std::make_unique<MemoryParser>(context, memoryKeys_);
        case FileKind::PROCESS_CPU:
            return std::make_unique<ProcessCpuParser>(context, *lives_, result_.ticksPerSecond);
        case FileKind::PROCESS_MEMORY:
            return std::make_unique<ProcessMemoryParser>(context, *lives_, result_.pageBytes);
        case FileKind::CPU_PROFILE:
            return std::make_unique<ProfileParser>(context);
        case FileKind::CHANNEL:
            return std::make_unique<ChannelParser>(context,
                                                   ChannelContext{file.name, lastChannel_});
        case FileKind::CHUNK_TIMES:
            return std::make_unique<ChunkTimesParser>(context);
        case FileKind::OTHER:
            break;
    }
    return nullptr;
}

// False when the reading is to end early.
bool ResultReader::FeedAll(int fd, FileParser* parser, std::string& problem) {
    block_.resize(BLOCK_BYTES);
    while (true) {
        const ssize_t got = read(fd, block_.data(), block_.size());
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            problem = fmt::format("cannot be read further: {}", std::strerror(errno));
        }
        if (got <= 0) {
            return true;
        }
        const auto bytes = static_cast<size_t>(got);
        parser->Feed(std::string_view(block_.data(), bytes));
        progress_.bytes += bytes;
        if (onProgress_ && !onProgress_(progress_)) {
            return false;
        }
    }
}

void ResultReader::Report(const FileFacts& file, const FileParser* parser, uint64_t bytes,
                          const std::string& problem) {
    std::string room;
    FileRow row;
    row.deviceId = file.deviceId;
    row.name = Utf8Text(file.name, room);
    row.kind = file.kind;
    row.bytes = bytes;
    row.problem = problem;
    if (parser != nullptr) {
        row.records = parser->Records();
        row.unreadableRecords = parser->UnreadableRecords();
        row.unreadableBytes = parser->UnreadableBytes();
    }
    visitor_.OnFile(row);
    const std::string name = fmt::format("{}/{}", file.directory, row.name);
    if (!problem.empty()) {
        outcome_.problems.push_back(fmt::format("{} {}", name, problem));
    }
    if (row.unreadableBytes > 0 || row.unreadableRecords > 0) {
        outcome_.problems.push_back(fmt::format("{}: {} of {} bytes are unreadable, in {} places",
                                                name, row.unreadableBytes, bytes,
                                                row.unreadableRecords));
    }
}

bool ResultReader::ReadFile(const FileFacts& file) {
    BeginProcess(file);
    const std::unique_ptr<FileParser> parser = MakeParser(file);
    std::string problem;
    const uint64_t before = progress_.bytes;
    bool goOn = true;
    if (parser != nullptr) {
        const int fd =
            OpenRegular(fmt::format("{}/{}/{}", result_.path, file.directory, file.name), problem);
        if (fd >= 0) {
            goOn = FeedAll(fd, parser.get(), problem);
            close(fd);
        }
        parser->Finish();
    }
    Report(file, parser.get(), parser == nullptr ? file.bytes : progress_.bytes - before, problem);
    return goOn;
}

ReadOutcome ResultReader::Read(const OnReadProgress& onProgress) {
    onProgress_ = onProgress;
    outcome_.problems = result_.problems;
    for (const FileFacts& file : result_.files) {
        progress_.total += file.kind == FileKind::OTHER ? 0 : file.bytes;
    }
    visitor_.OnBegin(result_);
    for (const FileFacts& file : result_.files) {
        if (!ReadFile(file)) {
            outcome_.cancelled = true;
            outcome_.problems.emplace_back("the reading was ended early");
            break;
        }
    }
    EndProcess();
    if (outcome_.problems.size() > MAX_PROBLEMS) {
        const size_t more = outcome_.problems.size() - MAX_PROBLEMS;
        outcome_.problems.resize(MAX_PROBLEMS);
        outcome_.problems.push_back(fmt::format("and {} more of the kind", more));
    }
    outcome_.firstNs = span_.firstNs;
    outcome_.lastNs = span_.lastNs;
    visitor_.OnEnd(outcome_);
    return outcome_;
}

}  // namespace tiv::host
