// The bytes of a file.
#include "soft_driver/replay_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "soft_driver/channel_writer.h"
#include "soft_driver/notices.h"
#include "soft_driver/pacer.h"

namespace tiv::soft_driver {

bool ReplaySource::Prepare(const StartRecord& start) {
    (void)start;  // the file has its own period and events
    file_ = FileDescriptor(open(settings_.file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file_.IsOpen()) {
        const int error = errno;
        Warn("replay cannot start: file=%s: %s", settings_.file.c_str(), ErrorText(error).c_str());
        errno = error;
        return false;
    }
    return true;
}

void ReplaySource::Run(ChannelWriter& writer) {
    Pacer pacer(settings_.bytesPerSecond, settings_.burstBytes, ReadySet::Clock::now());
    for (;;) {
        if (pacer.IsPaced() && !writer.SleepUntil(pacer.Next(ReadySet::Clock::now()))) {
            return;
        }
        if (!Produce(writer, pacer.PortionBytes())) {
            return;
        }
    }
}

bool ReplaySource::Produce(ChannelWriter& writer, uint64_t bytes) {
    while (bytes > 0) {
        const RingRegion run = writer.WaitForRoom();
        if (run.size == 0) {
            return false;
        }
        const int64_t count = ReadInto(run.data, std::min<uint64_t>(bytes, run.size));
        if (count <= 0) {
            return false;
        }
        writer.Commit(static_cast<size_t>(count));
        bytes -= static_cast<uint64_t>(count);
    }
    return true;
}

// Starts over at the end of a looped file; a round without a byte ends the replay.
int64_t ReplaySource::ReadInto(char* data, size_t bytes) {
    for (;;) {
        const ssize_t count = read(file_.Get(), data, bytes);
        if (count > 0) {
            inRound_ += static_cast<uint64_t>(count);
            return count;
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count < 0) {
            Warn("replay ended: file=%s: %s", settings_.file.c_str(), ErrorText(errno).c_str());
        }
        if (count < 0 || !settings_.loop || inRound_ == 0) {
            return 0;
        }
        (void)lseek(file_.Get(), 0, SEEK_SET);  // a pipe stays where it is: nothing comes next
        inRound_ = 0;
    }
}

}  // namespace tiv::soft_driver
