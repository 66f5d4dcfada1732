// The lock file that keeps a second daemon of the same user from starting.
//
// The lock is a record lock on an open descriptor: it dies with the process, so that a file left
// behind by a killed daemon stops nobody. It belongs to the process and not to the descriptor:
// nothing else may open and close this file, or the lock is gone.
#pragma once

#include <cstdint>
#include <string>

// Fills `path` with <home>/ide_daemon/.ruvo.lock and locks that file without waiting. Returns the
// descriptor, closed on exec, which holds the lock for as long as it is open; -1 when another
// daemon holds it or the file cannot be had.
[[nodiscard]] int32_t SingleProcessStart(std::string& path);

// Removes the lock file of that name. A path that does not resolve is left alone.
void SingleProcessRemove(const std::string& path);
