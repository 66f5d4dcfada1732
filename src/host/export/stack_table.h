// Gives equal stacks equal numbers.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/result/tables.h"

namespace tiv::host {

// A frame without its address: what a flame graph shows.
struct NamedFrame {
    uint64_t frame;
    std::string_view symbol;  // empty: unknown
    std::string_view module;
};

// One step of a stack towards the innermost frame.
struct StackStep {
    uint64_t stack;
    uint64_t parent;  // 0: the frame is the outermost
    uint64_t frame;
    uint64_t depth;  // frames up to and including this one
};

// Numbers stacks as the nodes of a tree from the outermost frame inwards; frames and steps are told
// when they are first seen, both count from 1. The memory has a bound: beyond it everything is
// forgotten, and what was seen before gets a second number. So one stack may have several numbers
// in a very large profile; one number never stands for two stacks.
class StackTable {
 public:
    using OnFrame = std::function<void(const NamedFrame& frame)>;
    using OnStep = std::function<void(const StackStep& step)>;

    StackTable(OnFrame onFrame, OnStep onStep, size_t maxBytes = MAX_BYTES)
        : onFrame_(std::move(onFrame)), onStep_(std::move(onStep)), maxBytes_(maxBytes) {}

    // The number of a stack, innermost frame first; 0 for an empty one.
    uint64_t NumberOf(const std::vector<StackFrame>& stack);

    // The numbers of the frames of the stack that was asked for last, outermost first.
    [[nodiscard]] const std::vector<uint64_t>& Frames() const { return lastFrames_; }

    // How often everything was forgotten.
    [[nodiscard]] uint64_t Forgotten() const { return forgotten_; }

 private:
    static constexpr size_t MAX_BYTES = 64 << 20;

    struct StepKey {
        uint64_t parent;
        uint64_t frame;
        bool operator==(const StepKey& other) const {
            return parent == other.parent && frame == other.frame;
        }
    };
    struct StepHash {
        size_t operator()(const StepKey& key) const {
            return static_cast<size_t>(key.parent * 0x9e3779b97f4a7c15ULL ^ key.frame);
        }
    };

    uint64_t FrameOf(const StackFrame& frame);
    void ForgetIfLarge();

    const OnFrame onFrame_;
    const OnStep onStep_;
    const size_t maxBytes_;
    size_t bytes_ = 0;
    uint64_t forgotten_ = 0;
    uint64_t lastFrame_ = 0;
    uint64_t lastStack_ = 0;
    std::unordered_map<std::string, uint64_t> frames_;  // by symbol, zero byte, module
    std::unordered_map<StepKey, uint64_t, StepHash> steps_;
    std::vector<uint64_t> lastFrames_;
    std::string key_;
};

// The text of a frame in a folded stack: the symbol, else the module's file name in brackets, else
// "[unknown]". Semicolons and control characters, which would end it, are replaced.
void AppendFoldedFrame(const StackFrame& frame, std::string& out);

// "<outermost>;...;<innermost>"
void AppendFoldedStack(const std::vector<StackFrame>& stack, std::string& out);

// `text` as one entry of a folded stack.
void AppendFoldedText(std::string_view text, std::string& out);

}  // namespace tiv::host
