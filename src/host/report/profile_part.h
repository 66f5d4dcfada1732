// The CPU profile on a page.
#pragma once

#include <map>
#include <string>
#include <utility>

#include "host/report/flame_tree.h"
#include "host/report/page_part.h"

namespace tiv::host {

// A flame graph and a table of functions per device and event. Of very many events only the first
// that were seen are drawn. One thread.
class ProfilePart : public PagePart {
 public:
    static constexpr size_t MOST_TREES = 8;
    static constexpr size_t MOST_FUNCTIONS = 1000;

    void Take(const ProfileSampleRow& row);

    void IncludeIn(PageGrid& /*grid*/) const override {}
    void Write(PageContext& context) override;

    [[nodiscard]] uint64_t Samples() const { return samples_; }

 private:
    using Subject = std::pair<int, std::string>;  // device and event

    void WriteTree(PageContext& context, const std::string& id, const Subject& subject,
                   const FlameTree& tree) const;

    std::map<Subject, FlameTree> trees_;
    uint64_t samples_ = 0;
    uint64_t undrawn_ = 0;
};

}  // namespace tiv::host
