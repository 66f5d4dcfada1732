// Writing of arrival times.
#include "host/chunk_times.h"

#include "host/host_clock.h"

namespace tiv::host {

ChunkTimes::ChunkTimes(const std::string& path) {
    if (!path.empty()) {
        lines_.open(path, std::ios::trunc | std::ios::binary);
        lines_ << "received_ns,bytes,file\n";
    }
}

void ChunkTimes::Note(std::string_view file, uint64_t bytes) {
    if (lines_.is_open()) {
        lines_ << RawClockNs() << ',' << bytes << ',' << file << '\n';
    }
}

bool ChunkTimes::Close() {
    if (lines_.is_open()) {
        lines_.close();
    }
    return !lines_.fail();
}

std::string ChunkTimesPath(const std::string& directory) {
    return directory.empty() ? "" : directory + ".chunks.csv";
}

}  // namespace tiv::host
