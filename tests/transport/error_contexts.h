// Which threads have handed their error context on. The linker sends those calls of this test
// program through the double.
#pragma once

#include <string>
#include <vector>

namespace tiv::test {

// Names of the threads that did since the last ForgetThreads, in their order.
std::vector<std::string> ThreadsWithAContext();
void ForgetThreads();

}  // namespace tiv::test
