// Tests of the tree of calls.
#include <gtest/gtest.h>

#include "host/report/flame_tree.h"
#include "host/report_decode.h"

namespace tiv::host {
namespace {

// Innermost first, as rows have it: "leaf;...;outermost" with ":module" behind a symbol.
std::vector<StackFrame> Stack(std::initializer_list<std::pair<const char*, const char*>> frames) {
    std::vector<StackFrame> stack;
    for (const auto& [symbol, module] : frames) {
        stack.push_back({0x1000 + stack.size(), symbol, 0, module});
    }
    return stack;
}

void AddSample(FlameTree& tree, const char* command, const std::vector<StackFrame>& stack) {
    ProfileSampleRow row{0, 0, {}, {}, {}, command, "cpu-clock", 1, stack};
    tree.Add(row);
}

struct Nodes {
    explicit Nodes(const FlameTree& tree) {
        PageBlock block;
        nlohmann::ordered_json section;
        tree.Write(block, section);
        const DecodedPage page(block.Encode(section));
        names = page.model["names"].get<std::vector<std::string>>();
        name = page.Column<uint32_t>(page.model["name"]);
        modules = page.model["modules"].get<std::vector<std::string>>();
        module = page.Column<uint32_t>(page.model["module"]);
        parent = page.Column<uint32_t>(page.model["parent"]);
        self = page.Column<uint32_t>(page.model["self"]);
        kind = page.Column<uint8_t>(page.model["codeKind"]);
    }

    // The names from below the root to a node.
    [[nodiscard]] std::string PathOf(size_t node) const {
        return node == 0 ? "" : PathOf(parent[node]) + "/" + names[name[node]];
    }
    // Place of a path; the number of nodes when there is no such.
    [[nodiscard]] size_t Find(const std::string& path) const {
        size_t node = 0;
        while (node < name.size() && PathOf(node) != path) {
            ++node;
        }
        return node;
    }

    std::vector<std::string> names, modules;
    std::vector<uint32_t> name, module, parent, self;
    std::vector<uint8_t> kind;
};

TEST(FlameTree, SamplesOfOneStackAreOneNodeWhateverTheirAddresses) {
    FlameTree tree;
    AddSample(tree, "app", Stack({{"work", "app"}, {"main", "app"}}));
    std::vector<StackFrame> other = Stack({{"work", "app"}, {"main", "app"}});
    other[0].address = 0x9999;
    AddSample(tree, "app", other);

    const Nodes nodes(tree);

    EXPECT_EQ(nodes.name.size(), 4u);
    EXPECT_EQ(nodes.self[nodes.Find("/app/main/work")], 2u);
}

TEST(FlameTree, ParentsStandBeforeTheirChildrenAndSiblingsByTheirSamples) {
    FlameTree tree;
    AddSample(tree, "app", Stack({{"rare", "m"}}));
    AddSample(tree, "app", Stack({{"often", "m"}}));
    AddSample(tree, "app", Stack({{"often", "m"}}));

    const Nodes nodes(tree);

    EXPECT_EQ(nodes.names[nodes.name[0]], "all");
    EXPECT_EQ(nodes.PathOf(2), "/app/often");
    EXPECT_EQ(nodes.PathOf(3), "/app/rare");
    for (size_t node = 1; node < nodes.parent.size(); ++node) {
        EXPECT_LT(nodes.parent[node], node);
    }
}

TEST(FlameTree, KindsTellKernelFromUserAndUnknownCode) {
    FlameTree tree;
    AddSample(tree, "app", Stack({{"schedule", "[kernel.kallsyms]"}, {"", "/usr/lib/libz.so"}}));
    AddSample(tree, "app", Stack({{"helper", "[vdso]"}}));

    const Nodes nodes(tree);

    EXPECT_EQ(nodes.kind[nodes.Find("/app/[libz.so]")], 2);
    EXPECT_EQ(nodes.kind[nodes.Find("/app/[libz.so]/schedule")], 1);
    EXPECT_EQ(nodes.kind[nodes.Find("/app/helper")], 0);
}

TEST(FlameTree, FunctionsAreNamedWithTheirModulesAndTheUnknownByThem) {
    FlameTree tree;
    AddSample(tree, "app", Stack({{"work", "/usr/bin/app"}, {"", "/usr/lib/libz.so"}, {"", ""}}));

    const Nodes nodes(tree);
    const auto moduleOf = [&](const std::string& path) {
        return nodes.modules[nodes.module.at(nodes.Find(path))];
    };

    EXPECT_EQ(moduleOf("/app/[unknown]"), "");
    EXPECT_EQ(moduleOf("/app/[unknown]/[libz.so]"), "/usr/lib/libz.so");
    EXPECT_EQ(moduleOf("/app/[unknown]/[libz.so]/work"), "/usr/bin/app");
}

TEST(FlameTree, KernelIsKnownByItsModules) {
    for (const char* module : {"[kernel.kallsyms]", "[guest.kernel.kallsyms]", "/lib/a.ko",
                               "/boot/vmlinux", "a.ko.xz", "a.ko.zst", "[bpf_prog]"}) {
        FlameTree tree;
        AddSample(tree, "app", Stack({{"f", module}}));
        EXPECT_EQ(Nodes(tree).kind.at(2), 1) << module;
    }
    for (const char* module : {"", "a", ".k", "/usr/lib/a.koz", "vmlinux.old", "[vdso]", "ko"}) {
        FlameTree tree;
        AddSample(tree, "app", Stack({{"f", module}}));
        EXPECT_EQ(Nodes(tree).kind.at(2), 0) << module;
    }
}

TEST(FlameTree, FunctionsForWhoseNamesThereIsNoRoomHaveNone) {
    FlameTree tree;
    std::string name;
    for (size_t i = 0; i < FlameTree::MOST_NAMES; ++i) {  // none, "all" and "app" are names as well
        name = "f" + std::to_string(i);
        AddSample(tree, "app", Stack({{name.c_str(), "m"}}));
    }

    const Nodes nodes(tree);

    EXPECT_EQ(nodes.names.size(), FlameTree::MOST_NAMES);
    EXPECT_EQ(nodes.PathOf(2), "/app/");
    EXPECT_EQ(nodes.self[2], 3u);
    EXPECT_EQ(nodes.self[nodes.Find("/app/f0")], 1u);
}

TEST(FlameTree, FramesWithoutSymbolThatFollowEachOtherAreOneNode) {
    FlameTree tree;
    AddSample(tree, "app", Stack({{"leaf", "m"}, {"", "m"}, {"", "m"}, {"", "n"}, {"", "m"}}));

    const Nodes nodes(tree);

    EXPECT_EQ(nodes.self[nodes.Find("/app/[m]/[n]/[m]/leaf")], 1u);
}

TEST(FlameTree, SampleWithoutStackCountsForItsCommand) {
    FlameTree tree;
    AddSample(tree, "app", {});
    AddSample(tree, "", {});

    const Nodes nodes(tree);

    EXPECT_EQ(nodes.self[nodes.Find("/app")], 1u);
    EXPECT_EQ(nodes.self[nodes.Find("/(no name)")], 1u);
}

TEST(FlameTree, RecursiveFunctionCountsOncePerSample) {
    FlameTree tree;
    AddSample(tree, "app", Stack({{"f", "m"}, {"f", "m"}, {"f", "m"}, {"main", "m"}}));
    AddSample(tree, "app", Stack({{"g", "m"}, {"f", "m"}, {"main", "m"}}));

    const nlohmann::ordered_json rows = tree.FunctionRows(10);

    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0], nlohmann::ordered_json({"f", "m", 50.0, 100.0, 1, 2}));
    EXPECT_EQ(rows[1], nlohmann::ordered_json({"g", "m", 50.0, 50.0, 1, 1}));
    EXPECT_EQ(rows[2], nlohmann::ordered_json({"main", "m", 0.0, 100.0, 0, 2}));
}

TEST(FlameTree, WithoutRoomASampleCountsForWhatItShares) {
    FlameTree tree(4);
    AddSample(tree, "app", Stack({{"known", "m"}, {"main", "m"}}));
    AddSample(tree, "app", Stack({{"deeper", "m"}, {"other", "m"}, {"main", "m"}}));

    const Nodes nodes(tree);

    EXPECT_EQ(nodes.name.size(), 4u);
    EXPECT_EQ(nodes.self[nodes.Find("/app/main")], 1u);
    EXPECT_EQ(tree.TruncatedSamples(), 1u);
    EXPECT_EQ(tree.Samples(), 2u);
}

}  // namespace
}  // namespace tiv::host
