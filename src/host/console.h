// Texts for the person at the terminal.
#pragma once

#include <cstdio>
#include <string>

namespace tiv::host {

// Writes to a standard stream. Whoever reads it may have gone, which is no reason to lose a
// collection: failures are passed over.
inline void Say(std::FILE* stream, const std::string& text) {
    (void)std::fputs(text.c_str(), stream);
    (void)std::fflush(stream);
}

}  // namespace tiv::host
