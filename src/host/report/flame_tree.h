// The samples of a CPU profile as a tree of calls.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/report/page_block.h"
#include "host/result/tables.h"

namespace tiv::host {

// Samples of one event, put together by their stacks. Below the root stand the commands, below each
// its outermost frames. Frames of one function in one module are one node, whatever their
// addresses; frames without a symbol that follow each other in one module are one node, too, for
// they tell nothing apart. Memory is bounded: when there is no room for another node, the rest of a
// stack counts for the last node that it shares with earlier ones, and TruncatedSamples tells of
// it. One thread.
class FlameTree {
 public:
    static constexpr size_t MOST_NODES = 200'000;
    static constexpr size_t MOST_NAMES = 100'000;

    explicit FlameTree(size_t mostNodes = MOST_NODES);

    void Add(const ProfileSampleRow& sample);

    [[nodiscard]] uint64_t Samples() const { return samples_; }
    [[nodiscard]] uint64_t TruncatedSamples() const { return truncated_; }

    // Adds names, modules and the nodes' columns to `section`: parents before children, and the
    // children of a node by their samples, most first.
    void Write(PageBlock& block, nlohmann::ordered_json& section) const;

    // One row per function: name, module, its own samples and those below it, as percentages of all
    // and as counts. A function that calls itself counts once per sample.
    [[nodiscard]] nlohmann::ordered_json FunctionRows(size_t most) const;

 private:
    enum Kind : uint8_t { USER_CODE, KERNEL_CODE, UNKNOWN_CODE };

    struct Function {
        uint32_t name = 0;
        uint32_t module = 0;
        Kind kind = USER_CODE;
        uint64_t self = 0;
        uint64_t total = 0;
        uint64_t lastSample = 0;  // that counted for `total`
    };
    struct Node {
        uint32_t function = 0;
        uint32_t parent = 0;
        uint64_t self = 0;
    };
    // Texts by number. Number 0 is the empty text.
    struct Texts {
        std::vector<std::string> list{""};
        std::unordered_map<std::string, uint32_t> numbers{{"", 0}};
        [[nodiscard]] uint32_t NumberOf(std::string_view text);
    };

    uint32_t FunctionOf(std::string_view name, std::string_view module, Kind kind);
    uint32_t FunctionOf(const StackFrame& frame);
    bool Step(uint32_t& node, uint32_t function);
    void CountTotal(uint32_t function);
    [[nodiscard]] std::vector<uint64_t> NodeTotals() const;
    [[nodiscard]] std::vector<uint32_t> LeftToRight(const std::vector<uint64_t>& totals) const;

    const size_t mostNodes_;
    Texts names_;
    Texts modules_;
    std::vector<Function> functions_;
    std::unordered_map<uint64_t, uint32_t> functionOf_;  // by name and module
    std::vector<Node> nodes_;
    std::unordered_map<uint64_t, uint32_t> childOf_;  // by parent and function
    uint64_t samples_ = 0;
    uint64_t truncated_ = 0;
};

}  // namespace tiv::host
