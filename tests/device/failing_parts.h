// Failures of operations of the control plane that work by themselves. The linker sends the calls
// of this test program through the double.
#pragma once

#include <string>

namespace tiv::test {

// While it lives, one operation fails at every call. Known are:
//
//   GetInotifyDir, GetPerfDataDir     give an empty text
//   InitReceiver, InitTask            give 7
//   UninitEntry                       does its work and gives 7
//   ConnectionReset, UninitTasks      throw std::bad_alloc
//
// One at a time.
class FailingPart {
 public:
    explicit FailingPart(const char* operation);
    ~FailingPart();
    FailingPart(const FailingPart&) = delete;
    FailingPart& operator=(const FailingPart&) = delete;
};

}  // namespace tiv::test
