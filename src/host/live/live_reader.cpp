// Chunks to rows.
#include "host/live/live_reader.h"

#include "host/result/process_parsers.h"
#include "host/result/system_cpu_parser.h"

namespace tiv::host {

namespace {

constexpr size_t MAX_FILES = 131072;

bool IsOfProcess(FileKind kind) {
    return kind == FileKind::PROCESS_CPU || kind == FileKind::PROCESS_MEMORY;
}

}  // namespace

ProcessLives& LiveReader::LivesOf(const LiveChunk& chunk) {
    ProcessFiles& files = processes_[{chunk.deviceId, chunk.pid}];
    if (files.lives == nullptr) {
        files.lives = std::make_unique<ProcessLives>(
            ParseContext{chunk.deviceId, model_, files.span}, chunk.pid, lastProcess_);
    }
    files.lastNs = chunk.arrivalNs;
    return *files.lives;
}

std::unique_ptr<FileParser> LiveReader::MakeParser(const LiveChunk& chunk, const std::string& name,
                                                   TimeSpan& span) {
    const ParseContext context{chunk.deviceId, model_, span};
    switch (chunk.kind) {
        case FileKind::SYSTEM_CPU:
            return std::make_unique<SystemCpuParser>(context);
        case FileKind::MEMORY:
            return std::make_unique<MemoryParser>(context, memoryKeys_[chunk.deviceId]);
        case FileKind::PROCESS_CPU:
            return std::make_unique<ProcessCpuParser>(context, LivesOf(chunk), ticksPerSecond_);
        case FileKind::PROCESS_MEMORY:
            return std::make_unique<ProcessMemoryParser>(context, LivesOf(chunk), pageBytes_);
        case FileKind::CHANNEL:
            return MakeChannelParser(chunk, context, {name, lastChannel_});
        default:
            return nullptr;
    }
}

// In the middle of a channel only its next header tells where a record begins; the lines of the
// cache statistic tell it themselves.
std::unique_ptr<FileParser> LiveReader::MakeChannelParser(const LiveChunk& chunk,
                                                          const ParseContext& context,
                                                          const ChannelContext& channel) {
    if (!chunk.afterGap) {
        return std::make_unique<ChannelParser>(context, channel);
    }
    if (chunk.data.find('\0') == std::string::npos) {
        return std::make_unique<StatisticParser>(context, channel);
    }
    return std::make_unique<ChannelStartsParser>(context, channel);
}

void LiveReader::Drop(const File& file) {
    if (file.parser != nullptr) {
        unreadable_ += file.parser->UnreadableRecords();
    }
}

void LiveReader::Read(const LiveChunk& chunk) {
    const FileId id(chunk.deviceId, chunk.fileName);
    if (files_.size() >= MAX_FILES && files_.find(id) == files_.end()) {
        return;
    }
    const auto entry = files_.try_emplace(id).first;
    File& file = entry->second;
    if (chunk.afterGap) {
        Drop(file);
        file.parser.reset();
        model_.ForgetChannels(chunk.deviceId, chunk.fileName);
    }
    file.lastNs = chunk.arrivalNs;
    file.isOfProcess = IsOfProcess(chunk.kind);
    file.span = file.parser == nullptr ? std::make_unique<TimeSpan>() : std::move(file.span);
    if (file.parser == nullptr) {
        file.parser = MakeParser(chunk, entry->first.second, *file.span);
    }
    if (file.parser == nullptr) {
        return;
    }
    file.span->lastNs.reset();
    model_.BeginChunk(chunk.deviceId, chunk.pid);
    file.parser->Feed(chunk.data);
    if (IsOfProcess(chunk.kind)) {
        model_.SetProcessName(chunk.pid, LivesOf(chunk).LatestName());
    }
    model_.EndChunk(chunk.kind, file.span->lastNs, chunk.arrivalNs);
}

void LiveReader::Prune(uint64_t arrivalNs) {
    for (auto file = files_.begin(); file != files_.end();) {
        const bool isIdle = file->second.isOfProcess && file->second.lastNs < arrivalNs;
        if (isIdle) {
            Drop(file->second);
        }
        file = isIdle ? files_.erase(file) : std::next(file);
    }
    for (auto process = processes_.begin(); process != processes_.end();) {
        process =
            process->second.lastNs < arrivalNs ? processes_.erase(process) : std::next(process);
    }
}

uint64_t LiveReader::Unreadable() const {
    uint64_t sum = unreadable_;
    for (const auto& [id, file] : files_) {
        sum += file.parser == nullptr ? 0 : file.parser->UnreadableRecords();
    }
    return sum;
}

}  // namespace tiv::host
