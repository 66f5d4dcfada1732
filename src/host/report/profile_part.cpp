// Sections of the CPU profile.
#include "host/report/profile_part.h"

#include "host/report/page_text.h"

namespace tiv::host {

namespace {

using nlohmann::ordered_json;

}  // namespace

void ProfilePart::Take(const ProfileSampleRow& row) {
    ++samples_;
    const Subject key{row.deviceId, PageText(row.event)};
    auto tree = trees_.find(key);
    if (tree == trees_.end()) {
        if (trees_.size() >= MOST_TREES) {
            ++undrawn_;
            return;
        }
        tree = trees_.try_emplace(key).first;
    }
    tree->second.Add(row);
}

void ProfilePart::WriteTree(PageContext& context, const std::string& id, const Subject& subject,
                            const FlameTree& tree) const {
    const std::string& event = subject.second;
    const std::string of =
        (trees_.size() > 1 ? " at " + event : "") + context.OfDevice(subject.first);
    ordered_json section = {
        {"kind", "flame"},
        {"id", "flame-" + id},
        {"title", "CPU profile" + of},
        {"link", "profile" + of},
        {"subtitle", event + ": calls from top to bottom, as wide as their samples"}};
    if (tree.TruncatedSamples() > 0) {
        section["note"] = std::to_string(tree.TruncatedSamples()) +
                          " samples are cut to the calls that they share with others: there are "
                          "more different stacks than a page holds.";
    } else {
        section["note"] =
            "Click a frame to zoom. Orange is user code, blue the kernel, grey code "
            "without symbols. The graph shows the whole run.";
    }
    tree.Write(context.block, section);
    context.sections.push_back(std::move(section));
    context.sections.push_back(
        {{"kind", "table"},
         {"id", "functions-" + id},
         {"title", "Functions" + of},
         {"link", "functions" + of},
         {"subtitle", std::to_string(tree.Samples()) + " samples"},
         {"sort", 2},
         {"columns",
          {{{"name", "function"}, {"unit", "text"}},
           {{"name", "module"}, {"unit", "text"}},
           {{"name", "self"}, {"unit", "percent"}, {"hint", "samples in the function itself"}},
           {{"name", "with callees"}, {"unit", "percent"}},
           {{"name", "self samples"}, {"unit", "count"}},
           {{"name", "samples with callees"}, {"unit", "count"}}}},
         {"rows", tree.FunctionRows(MOST_FUNCTIONS)}});
}

void ProfilePart::Write(PageContext& context) {
    if (trees_.empty()) {
        context.sections.push_back(
            EmptySection("profile", "CPU profile",
                         "Not measured: it takes events to record, such as --ctrl-cpu 0x11."));
        return;
    }
    int number = 0;
    for (const auto& [key, tree] : trees_) {
        WriteTree(context, std::to_string(number++), key, tree);
    }
    if (undrawn_ > 0) {
        context.sections.back()["note"] =
            std::to_string(undrawn_) + " samples of further events are not drawn on this page.";
    }
}

}  // namespace tiv::host
