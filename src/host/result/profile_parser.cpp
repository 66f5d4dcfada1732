// The CPU profile as rows.
#include "host/result/profile_parser.h"

#include "host/result/utf8_text.h"

namespace tiv::host {

namespace {

constexpr size_t MAX_LINE_BYTES = 64 << 10;  // symbols of templates take kilobytes
constexpr size_t MAX_FRAMES = 4096;
constexpr size_t MAX_STACK_BYTES = 1 << 20;
constexpr size_t MAX_COMMAND_BYTES = 15;

}  // namespace

void ProfileParser::AppendToLine(std::string_view part) {
    lineBytes_ += part.size();
    lineIsTooLong_ = lineIsTooLong_ || line_.size() + part.size() > MAX_LINE_BYTES;
    if (!lineIsTooLong_) {
        line_.append(part);
    }
}

void ProfileParser::Feed(std::string_view bytes) {
    while (!bytes.empty()) {
        const size_t end = bytes.find('\n');
        AppendToLine(bytes.substr(0, end));
        if (end == std::string_view::npos) {
            return;
        }
        ++lineBytes_;
        EndLine();
        bytes.remove_prefix(end + 1);
    }
}

void ProfileParser::EndLine() {
    if (lineIsTooLong_) {
        isBroken_ = inStack_;
        line_.clear();
        if (!inStack_) {
            DropFront();
            CountUnreadable(lineBytes_);
        } else {
            sampleBytes_ += lineBytes_;
        }
    } else if (inStack_) {
        TakeInStack(line_);
    } else {
        TakeBetween(line_);
    }
    line_.clear();
    lineIsTooLong_ = false;
    lineBytes_ = 0;
}

// Text that no head line followed closely enough.
void ProfileParser::DropFront() {
    if (!front_.empty()) {
        CountUnreadable(front_.size());
        front_.clear();
    }
}

void ProfileParser::TakeBetween(std::string_view line) {
    if (BeginSample(line)) {
        return;
    }
    front_.append(line).append("\n");
    if (front_.size() > MAX_COMMAND_BYTES) {
        DropFront();
    }
}

bool ProfileParser::BeginSample(std::string_view line) {
    ProfileHead head;
    if (!ParseProfileHead(line, head)) {
        return false;
    }
    if (front_.size() + head.command.size() > MAX_COMMAND_BYTES) {
        DropFront();
    }
    head_.head = head;
    std::string room;
    front_.append(head.command);
    head_.command.assign(Utf8Text(front_, room));
    head_.event.assign(Utf8Text(head.event, room));
    sampleBytes_ = lineBytes_ + front_.size() - head.command.size();
    front_.clear();
    frames_.clear();
    texts_.clear();
    inStack_ = true;
    isBroken_ = head.frame.has_value() && !KeepFrame(*head.frame);
    head_.head.frame.reset();
    return true;
}

bool ProfileParser::KeepFrame(const StackFrame& frame) {
    if (frames_.size() >= MAX_FRAMES || texts_.size() > MAX_STACK_BYTES) {
        return false;
    }
    KeptFrame kept{frame.address, frame.offset, 0, 0, 0, 0};
    std::string room;
    const auto keep = [&](std::string_view text, size_t& begin, size_t& bytes) {
        const std::string_view fit = Utf8Text(text, room);
        begin = texts_.size();
        bytes = fit.size();
        texts_.append(fit);
    };
    keep(frame.symbol, kept.symbol, kept.symbolBytes);
    keep(frame.module, kept.module, kept.moduleBytes);
    frames_.push_back(kept);
    return true;
}

void ProfileParser::TakeInStack(std::string_view line) {
    if (line.empty()) {
        sampleBytes_ += lineBytes_;
        EndSample();
        return;
    }
    StackFrame frame;
    if (line.front() == '\t' || line.front() == ' ') {
        if (ParseStackFrame(line, frame)) {
            sampleBytes_ += lineBytes_;
            isBroken_ = !KeepFrame(frame) || isBroken_;
            return;
        }
    }
    // The rest of a sample that was cut off may be followed by a whole one.
    ProfileHead head;
    if (ParseProfileHead(line, head)) {
        DropSample();
        (void)BeginSample(line);
        return;
    }
    sampleBytes_ += lineBytes_;
    isBroken_ = true;
}

void ProfileParser::EndSample() {
    if (isBroken_) {
        DropSample();
        return;
    }
    stack_.clear();
    const std::string_view texts = texts_;
    for (const KeptFrame& kept : frames_) {
        stack_.push_back({kept.address, texts.substr(kept.symbol, kept.symbolBytes), kept.offset,
                          texts.substr(kept.module, kept.moduleBytes)});
    }
    const ProfileHead& head = head_.head;
    Visitor().OnProfileSample({DeviceId(), head.timeNs, head.core, head.pid, head.threadId,
                               head_.command, head_.event, head.period, stack_});
    Saw(head.timeNs);
    CountRecord();
    inStack_ = false;
}

void ProfileParser::DropSample() {
    CountUnreadable(sampleBytes_);
    inStack_ = false;
    isBroken_ = false;
}

void ProfileParser::Finish() {
    if (lineBytes_ > 0) {
        sampleBytes_ += inStack_ ? lineBytes_ : 0;
        if (!inStack_) {
            CountUnreadable(lineBytes_);
        }
        line_.clear();
        lineBytes_ = 0;
    }
    if (inStack_) {
        DropSample();
    }
    DropFront();
}

}  // namespace tiv::host
