// Doubles of the calls that the lock file makes past the OS abstraction.
#pragma once

#include <string>

namespace tiv::test {

// The home field of the user's record; the text is kept.
void SetHome(const std::string& home);
// A record whose home field is a null pointer, and no record at all.
void SetNullHome();
void SetNoUserRecord();

// From here on the file control command `command` fails; the others reach the system.
void FailFileControl(int command);

}  // namespace tiv::test
