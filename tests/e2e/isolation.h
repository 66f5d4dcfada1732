// The namespace in which end-to-end tests run.
#pragma once

namespace tiv::e2e {

// True when every absolute path that the daemon empties or writes is private to this process.
bool IsIsolated();

// Runs the tests of this program in a private namespace. Returns the program's exit status.
int RunIsolated(int argc, char** argv);

}  // namespace tiv::e2e
