// Lines of the text form of a CPU profile.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "host/result/tables.h"

namespace tiv::host {

// The head of a sample:
//
//   <command> <thread> [<core>] <seconds>.<fraction>: <period> <event>:
//   <command> <process>/<thread> [<core>] ...
//
// A sample without a call chain has its one frame behind the event, on the same line.
struct ProfileHead {
    std::string_view command;
    std::optional<uint32_t> pid;
    std::optional<uint32_t> threadId;  // absent when the recorder did not know it
    uint32_t core = 0;
    uint64_t timeNs = 0;
    uint64_t period = 0;
    std::string_view event;
    std::optional<StackFrame> frame;
};

// False when the line is no head. The command may hold anything, also what looks like a head: the
// last place of the line that reads as one counts.
[[nodiscard]] bool ParseProfileHead(std::string_view line, ProfileHead& head);

// Reads "<address> <symbol>+0x<offset> (<module>)" with blanks in front. Symbol and module may hold
// blanks and parentheses; "[unknown]" leaves either empty. False when the line is no frame.
[[nodiscard]] bool ParseStackFrame(std::string_view line, StackFrame& frame);

}  // namespace tiv::host
