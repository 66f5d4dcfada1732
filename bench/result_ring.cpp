// The file of bounded size that every receiver of a benchmark writes.
#include "bench/result_ring.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string>

namespace tiv::bench {

ResultRing::ResultRing() : fd_(memfd_create("result", MFD_CLOEXEC)) {
    const std::string page(1U << 20, '\0');
    for (uint64_t written = 0; written < BYTES; written += page.size()) {
        if (!Write(page)) {
            throw std::runtime_error("no memory for the result file");
        }
    }
}

ResultRing::~ResultRing() { close(fd_); }

bool ResultRing::Write(std::string_view bytes) {
    while (!bytes.empty()) {
        const size_t count = std::min<uint64_t>(bytes.size(), BYTES - position_);
        const ssize_t written = pwrite(fd_, bytes.data(), count, static_cast<off_t>(position_));
        if (written <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<size_t>(written));
        position_ = (position_ + static_cast<uint64_t>(written)) % BYTES;
    }
    return true;
}

}  // namespace tiv::bench
