// Putting stacks together.
#include "host/report/flame_tree.h"

#include <algorithm>
#include <numeric>

#include "host/report/page_text.h"

namespace tiv::host {

namespace {

using nlohmann::ordered_json;

constexpr double FULL = 100;

uint64_t Pair(uint32_t first, uint32_t second) {
    return static_cast<uint64_t>(first) << 32 | second;
}

bool EndsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool IsKernel(std::string_view module) {
    return module.substr(0, 7) == "[kernel" || module.substr(0, 6) == "[guest" ||
           EndsWith(module, ".ko") || EndsWith(module, "vmlinux") || EndsWith(module, ".ko.xz") ||
           EndsWith(module, ".ko.zst") || module.substr(0, 4) == "[bpf";
}

}  // namespace

FlameTree::FlameTree(size_t mostNodes) : mostNodes_(mostNodes) {
    functions_.push_back({names_.NumberOf("all"), 0, USER_CODE, 0, 0, 0});
    nodes_.push_back({});
}

// A text for which there is no room any more has number 0.
uint32_t FlameTree::Texts::NumberOf(std::string_view text) {
    std::string shown = PageText(text);
    const auto found = numbers.find(shown);
    if (found != numbers.end()) {
        return found->second;
    }
    if (list.size() >= MOST_NAMES) {
        return 0;
    }
    const auto number = static_cast<uint32_t>(list.size());
    list.push_back(shown);
    numbers.emplace(std::move(shown), number);
    return number;
}

uint32_t FlameTree::FunctionOf(std::string_view name, std::string_view module, Kind kind) {
    const uint32_t nameNumber = names_.NumberOf(name);
    const uint32_t moduleNumber = modules_.NumberOf(module);
    const auto [place, isNew] = functionOf_.try_emplace(Pair(nameNumber, moduleNumber),
                                                        static_cast<uint32_t>(functions_.size()));
    if (isNew) {
        functions_.push_back({nameNumber, moduleNumber, kind, 0, 0, 0});
    }
    return place->second;
}

uint32_t FlameTree::FunctionOf(const StackFrame& frame) {
    if (!frame.symbol.empty()) {
        return FunctionOf(frame.symbol, frame.module,
                          IsKernel(frame.module) ? KERNEL_CODE : USER_CODE);
    }
    const std::string_view base = frame.module.substr(frame.module.rfind('/') + 1);
    return FunctionOf(base.empty() ? "[unknown]" : "[" + std::string(base) + "]", frame.module,
                      UNKNOWN_CODE);
}

// Goes to the child of `node` that belongs to the function, which is made when there is room.
bool FlameTree::Step(uint32_t& node, uint32_t function) {
    const auto found = childOf_.find(Pair(node, function));
    if (found != childOf_.end()) {
        node = found->second;
        return true;
    }
    if (nodes_.size() >= mostNodes_) {
        return false;
    }
    const auto made = static_cast<uint32_t>(nodes_.size());
    childOf_.emplace(Pair(node, function), made);
    nodes_.push_back({function, node, 0});
    node = made;
    return true;
}

void FlameTree::CountTotal(uint32_t function) {
    if (functions_[function].lastSample != samples_) {
        functions_[function].lastSample = samples_;
        ++functions_[function].total;
    }
}

void FlameTree::Add(const ProfileSampleRow& sample) {
    ++samples_;
    uint32_t node = 0;
    const uint32_t command =
        FunctionOf(sample.command.empty() ? std::string_view("(no name)") : sample.command,
                   "command", USER_CODE);
    bool room = Step(node, command);
    uint32_t above = command;
    for (auto frame = sample.stack.rbegin(); frame != sample.stack.rend(); ++frame) {
        const uint32_t function = FunctionOf(*frame);
        CountTotal(function);
        const bool folded = function == above && functions_[function].kind == UNKNOWN_CODE;
        room = room && (folded || Step(node, function));
        above = function;
    }
    ++nodes_[node].self;
    if (!sample.stack.empty()) {
        ++functions_[FunctionOf(sample.stack.front())].self;
    }
    truncated_ += room ? 0 : 1;
}

std::vector<uint64_t> FlameTree::NodeTotals() const {
    std::vector<uint64_t> totals(nodes_.size());
    for (size_t i = nodes_.size(); i-- > 0;) {
        totals[i] += nodes_[i].self;
        if (i > 0) {
            totals[nodes_[i].parent] += totals[i];
        }
    }
    return totals;
}

// All nodes, parents first, and siblings by their samples.
std::vector<uint32_t> FlameTree::LeftToRight(const std::vector<uint64_t>& totals) const {
    std::vector<uint32_t> depths(nodes_.size());
    for (size_t i = 1; i < nodes_.size(); ++i) {
        depths[i] = depths[nodes_[i].parent] + 1;
    }
    std::vector<uint32_t> order(nodes_.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
        return depths[a] != depths[b] ? depths[a] < depths[b] : totals[a] > totals[b];
    });
    return order;
}

void FlameTree::Write(PageBlock& block, ordered_json& section) const {
    const std::vector<uint32_t> order = LeftToRight(NodeTotals());
    std::vector<uint32_t> placeOf(nodes_.size());
    for (size_t i = 0; i < order.size(); ++i) {
        placeOf[order[i]] = static_cast<uint32_t>(i);
    }
    std::vector<uint32_t> name;
    std::vector<uint32_t> module;
    std::vector<uint32_t> parent;
    std::vector<uint32_t> self;
    std::vector<uint8_t> kind;
    for (const uint32_t index : order) {
        const Node& node = nodes_[index];
        const Function& function = functions_[node.function];
        name.push_back(function.name);
        module.push_back(function.module);
        parent.push_back(placeOf[node.parent]);
        self.push_back(static_cast<uint32_t>(std::min<uint64_t>(node.self, UINT32_MAX)));
        kind.push_back(function.kind);
    }
    section["names"] = names_.list;
    section["modules"] = modules_.list;
    section["name"] = block.AddNumbers(name);
    section["module"] = block.AddNumbers(module);
    section["parent"] = block.AddNumbers(parent);
    section["self"] = block.AddNumbers(self);
    section["codeKind"] = block.AddBytes(kind);
}

ordered_json FlameTree::FunctionRows(size_t most) const {
    std::vector<const Function*> best;
    for (const Function& function : functions_) {
        if (function.total > 0) {
            best.push_back(&function);
        }
    }
    std::stable_sort(best.begin(), best.end(), [](const Function* a, const Function* b) {
        return a->self != b->self ? a->self > b->self : a->total > b->total;
    });
    best.resize(std::min(best.size(), most));
    ordered_json rows = ordered_json::array();
    const auto share = [&](uint64_t count) {
        return FULL * static_cast<double>(count) / static_cast<double>(samples_);
    };
    for (const Function* function : best) {
        ordered_json row = ordered_json::array();
        row.push_back(names_.list[function->name]);
        row.push_back(modules_.list[function->module]);
        row.push_back(share(function->self));
        row.push_back(share(function->total));
        row.push_back(function->self);
        row.push_back(function->total);
        rows.push_back(std::move(row));
    }
    return rows;
}

}  // namespace tiv::host
