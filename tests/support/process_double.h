// Double of the driver, the OS abstraction and the start functions for a whole process.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/driver_functions.h"
#include "support/mm_functions.h"

namespace tiv::test {

// Linked into a program in place of the platform, it forwards every call: driver calls to the
// driver library behind the program, all others to the platform. On the way it applies a fault plan
// and keeps a record of the calls.
//
// Two environment variables switch it on before main: TIV_FAULT_PLAN names the file of the first
// plan, TIV_FAULT_SOCKET the path of a socket through which a test replaces the plan and reads the
// record (see FaultControl). A plan that can't be read ends the process with status 97.
class ProcessDouble {
 public:
    static ProcessDouble& Instance();

    // What the environment variables do. Empty, or what went wrong.
    std::string LoadPlan(const std::string& file);
    std::string Listen(const std::string& socketPath);

    // Replaces the faults of all tables. Empty, or what is wrong with the plan.
    std::string ReplacePlan(const std::string& text);
    // Calls of `function`, or of all functions when it is empty, in the order of their entry.
    std::vector<Call> Calls(const std::string& function) const;
    void ClearCalls();

    DriverFunctions driver;
    MmFunctions mm;
    FaultTable start;  // IAMResMgrReady, dlog_init, DlogSetAttr

 private:
    ProcessDouble();
    void Serve(int listener);
    std::string Answer(const std::string& request);
};

}  // namespace tiv::test
