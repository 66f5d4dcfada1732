// Silence of the libraries while tivctl says it in words of its own.
#pragma once

namespace tiv::host {

// While one lives, nothing reaches standard error: the log library writes errors at any level, and
// an error of a check is the same that a refusal tells. When TIV_LOG_LEVEL asks for more than
// errors nothing is held back. For stretches in which no other thread runs.
class QuietLibraries {
 public:
    QuietLibraries();
    ~QuietLibraries();
    QuietLibraries(const QuietLibraries&) = delete;
    QuietLibraries& operator=(const QuietLibraries&) = delete;

 private:
    int kept_ = -1;  // standard error as it was; -1 when it was left alone
};

// Lets the driver say what is wrong with its configuration, in front of a silence in which it is
// asked something: it reads the configuration with the first question and says so only then.
void HearTheDriver();

}  // namespace tiv::host
