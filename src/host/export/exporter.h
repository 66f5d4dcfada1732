// What all forms of an export have in common.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/result/result_directory.h"
#include "host/result/tables.h"

namespace tiv::host {

// Takes the rows of a result and writes them somewhere. A failure is kept and everything behind it
// does nothing, so that the reading can be ended at the next block. One thread.
class Exporter : public TableVisitor {
 public:
    // Makes what is written to. False with an error.
    [[nodiscard]] virtual bool Open() = 0;
    // Gives everything its name, behind OnEnd. False with an error; then nothing was left behind
    // but files that were whole before.
    [[nodiscard]] virtual bool Commit() = 0;

    // Why something failed; empty while nothing did.
    [[nodiscard]] virtual std::string Error() const = 0;
    // The files that Commit leaves behind.
    [[nodiscard]] virtual std::vector<std::string> Outputs() const = 0;

    // `pulse` is called over and over while something takes long behind the last row. False ends
    // the export; nothing is to be committed then.
    void SetPulse(std::function<bool()> pulse) { pulse_ = std::move(pulse); }

 protected:
    [[nodiscard]] bool GoesOn() const { return !pulse_ || pulse_(); }

 private:
    std::function<bool()> pulse_;
};

// True when the result is everything that was asked for and all of it could be read.
inline bool IsWhole(const ResultDirectory& result, const ReadOutcome& outcome) {
    return result.complete && outcome.problems.empty();
}

}  // namespace tiv::host
