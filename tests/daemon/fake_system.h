// Doubles of the calls that the daemon shell makes past the OS abstraction.
#pragma once

#include <chrono>
#include <string>

namespace tiv::test {

// The home field of the user's record; the text is kept.
void SetHome(const std::string& home);
// A record whose home field is a null pointer, and no record at all.
void SetNullHome();
void SetNoUserRecord();

// From here on the file control command `command` fails; the others reach the system.
void FailFileControl(int command);

// From here on every wait with a deadline has run out when it begins, or lasts as told again.
void EndTimedWaits(bool end);
// The deadline of the last wait that ended so.
std::chrono::steady_clock::time_point LastDeadline();

}  // namespace tiv::test
