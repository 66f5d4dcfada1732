// Numbering of stacks and their texts.
#include "host/export/stack_table.h"

namespace tiv::host {

namespace {

// What an entry of a map takes besides its text.
constexpr size_t ENTRY_BYTES = 64;
constexpr std::string_view KERNEL = "[kernel.kallsyms]";

}  // namespace

uint64_t StackTable::FrameOf(const StackFrame& frame) {
    key_.assign(frame.symbol).push_back('\0');
    key_.append(frame.module);
    const auto known = frames_.find(key_);
    if (known != frames_.end()) {
        return known->second;
    }
    frames_.emplace(key_, ++lastFrame_);
    bytes_ += key_.size() + ENTRY_BYTES;
    onFrame_({lastFrame_, frame.symbol, frame.module});
    return lastFrame_;
}

void StackTable::ForgetIfLarge() {
    if (bytes_ > maxBytes_) {
        frames_.clear();
        steps_.clear();
        bytes_ = 0;
        ++forgotten_;
    }
}

uint64_t StackTable::NumberOf(const std::vector<StackFrame>& stack) {
    ForgetIfLarge();
    uint64_t number = 0;
    uint64_t depth = 0;
    lastFrames_.clear();
    for (auto frame = stack.rbegin(); frame != stack.rend(); ++frame) {
        ++depth;
        const StepKey key{number, FrameOf(*frame)};
        const auto [entry, isNew] = steps_.try_emplace(key, lastStack_ + 1);
        if (isNew) {
            ++lastStack_;
            bytes_ += sizeof(key) + ENTRY_BYTES;
            onStep_({lastStack_, key.parent, key.frame, depth});
        }
        number = entry->second;
        lastFrames_.push_back(key.frame);
    }
    return number;
}

void AppendFoldedText(std::string_view text, std::string& out) {
    for (const char c : text) {
        const bool isControl = static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
        out += c == ';' ? ':' : isControl ? ' ' : c;
    }
}

void AppendFoldedFrame(const StackFrame& frame, std::string& out) {
    if (!frame.symbol.empty()) {
        AppendFoldedText(frame.symbol, out);
    } else if (!frame.module.empty() && frame.module != KERNEL) {
        out += '[';
        AppendFoldedText(frame.module.substr(frame.module.rfind('/') + 1), out);
        out += ']';
    } else {
        out += frame.module.empty() ? "[unknown]" : KERNEL;
    }
}

void AppendFoldedStack(const std::vector<StackFrame>& stack, std::string& out) {
    for (auto frame = stack.rbegin(); frame != stack.rend(); ++frame) {
        if (frame != stack.rbegin()) {
            out += ';';
        }
        AppendFoldedFrame(*frame, out);
    }
}

}  // namespace tiv::host
