// Writing of arrival times.
#include "host/chunk_times.h"

#include <cerrno>

#include "host/host_clock.h"

namespace tiv::host {

ChunkTimes::ChunkTimes(const std::string& path) {
    if (!path.empty()) {
        lines_.open(path, std::ios::trunc | std::ios::binary);
        lines_ << "received_ns,bytes,file\n";
        TakeFailure();
    }
}

// Streams tell that they failed, and leave it to errno why.
void ChunkTimes::TakeFailure() {
    if (!lines_ && failure_ == 0) {
        failure_ = errno == 0 ? EIO : errno;
    }
}

void ChunkTimes::Note(std::string_view file, uint64_t bytes) {
    if (lines_.is_open()) {
        lines_ << RawClockNs() << ',' << bytes << ',' << file << '\n';
        TakeFailure();
    }
}

int ChunkTimes::Close() {
    if (lines_.is_open()) {
        lines_.close();
        TakeFailure();
    }
    return failure_;
}

std::string ChunkTimesPath(const std::string& directory) {
    return directory.empty() ? "" : directory + ".chunks.csv";
}

}  // namespace tiv::host
