// Plans of faults as text, one fault a line.
#pragma once

#include <string>
#include <vector>

#include "support/fault_table.h"

namespace tiv::test {

// Reads lines of the form
//
//   function [argument=value ...] [skip=N] [count=M] [call=N] [result=R] [errno=E] [delay=ms]
//            [out=V] [null=1]
//
// where `argument` is the name of a recorded argument (device, channel, attr, service, ...) that
// the call must have with that value, `count=-1` is always and `call=N` is the N-th call alone.
// Empty lines and lines that start with '#' say nothing. Returns an empty text and sets `faults`,
// or returns what is wrong and leaves `faults` alone.
std::string ParseFaultPlan(const std::string& text, std::vector<Fault>& faults);

}  // namespace tiv::test
