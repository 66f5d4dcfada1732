// Counting of stacks.
#include "host/export/folded_exporter.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/export/stack_table.h"

namespace tiv::host {

namespace {

// A recorder takes at most eight; more names than these are damage.
constexpr size_t MAX_EVENTS = 64;
constexpr size_t ENTRY_BYTES = 64;
constexpr size_t MAX_NAME_BYTES = 64;

// An event's name as a file's: letters, digits and a few signs stay.
std::string FileName(std::string_view event) {
    std::string name;
    for (const char c : event.substr(0, MAX_NAME_BYTES)) {
        const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                             (c >= '0' && c <= '9') || c == '-' || c == '_' || c == ':';
        name += isPlain ? c : '_';
    }
    return name;
}

}  // namespace

bool FoldedExporter::Open() {
    error_ = directory_.Make();
    return error_.empty();
}

std::string FoldedExporter::Error() const {
    for (const auto& [name, event] : events_) {
        for (const OutputFile* file : {&event->file, &event->scratch}) {
            if (!file->Error().empty()) {
                return file->Error();
            }
        }
    }
    return error_;
}

std::vector<std::string> FoldedExporter::Outputs() const {
    std::vector<std::string> paths;
    for (const auto& [name, event] : events_) {
        paths.push_back(event->file.Path());
    }
    return paths;
}

FoldedExporter::Event* FoldedExporter::EventOf(std::string_view name) {
    // Names that make one file name are one event.
    const std::string fileName = FileName(name);
    const auto known = events_.find(fileName);
    if (known != events_.end()) {
        return known->second.get();
    }
    if (events_.size() >= MAX_EVENTS) {
        return nullptr;
    }
    auto event = std::make_unique<Event>(fmt::format("{}/{}.folded", directory_.Path(), fileName));
    Event* made = event.get();
    events_.emplace(fileName, std::move(event));
    return made->file.Open() && made->scratch.Open() ? made : nullptr;
}

void FoldedExporter::Flush(Event& event) {
    std::vector<const std::pair<const std::string, uint64_t>*> lines;
    lines.reserve(event.counts.size());
    for (const auto& line : event.counts) {
        lines.push_back(&line);
    }
    std::sort(lines.begin(), lines.end(),
              [](const auto* left, const auto* right) { return left->first < right->first; });
    for (const auto* line : lines) {
        event.scratch.Write(fmt::format("{} {}\n", line->first, line->second));
    }
    event.counts.clear();
}

void FoldedExporter::OnProfileSample(const ProfileSampleRow& row) {
    Event* event = EventOf(row.event);
    if (event == nullptr) {
        ++samplesOfMoreEvents_;
        return;
    }
    key_.clear();
    AppendFoldedText(row.command, key_);
    if (!row.stack.empty()) {
        key_ += ';';
        AppendFoldedStack(row.stack, key_);
    }
    const auto [entry, isNew] = event->counts.try_emplace(key_, 0);
    ++entry->second;
    bytes_ += isNew ? key_.size() + ENTRY_BYTES : 0;
    if (bytes_ > maxBytes_) {
        for (const auto& [name, full] : events_) {
            Flush(*full);
        }
        bytes_ = 0;
    }
}

void FoldedExporter::OnEnd(const ReadOutcome& outcome) {
    std::string head;
    if (!IsWhole(*result_, outcome)) {
        head = "# INCOMPLETE: this profile is not everything that was asked for.\n";
        for (const std::string& problem : outcome.problems) {
            head += "# ";
            AppendFoldedText(problem, head);
            head += ".\n";
        }
    }
    if (samplesOfMoreEvents_ > 0) {
        head += fmt::format("# {} samples of more than {} events are left out.\n",
                            samplesOfMoreEvents_, MAX_EVENTS);
    }
    for (const auto& entry : events_) {
        Event& event = *entry.second;
        Flush(event);
        event.file.Write(head);
        // A failure stays with the file it happened to.
        (void)event.scratch.ReadBack([this, &event](std::string_view bytes) {
            event.file.Write(bytes);
            return event.file.Error().empty() && GoesOn();
        });
    }
    result_ = nullptr;
}

bool FoldedExporter::Commit() {
    if (!Error().empty()) {
        return false;
    }
    for (const auto& [name, event] : events_) {
        if (!event->file.Commit()) {
            return false;
        }
    }
    return true;
}

}  // namespace tiv::host
