// A test's side of the control socket of a process double.
#pragma once

#include <string>
#include <vector>

#include "support/fault_table.h"

namespace tiv::test {

class FaultControl {
 public:
    explicit FaultControl(std::string socketPath) : path_(std::move(socketPath)) {}

    // Replaces the plan. Empty, or what is wrong: with the plan or with the connection.
    std::string ReplacePlan(const std::string& text) const;
    // Calls of `function`, or of all when it is empty, in their order.
    std::vector<Call> Calls(const std::string& function = "") const;
    std::string ClearCalls() const;
    // False when there were not `count` calls within the time.
    bool WaitForCalls(const std::string& function, size_t count,
                      std::chrono::milliseconds limit = std::chrono::seconds(10)) const;

 private:
    // Sends a request; the answer's first line without its end is the result, the rest goes to
    // `body`.
    std::string Ask(const std::string& request, std::string& body) const;

    std::string path_;
};

}  // namespace tiv::test
