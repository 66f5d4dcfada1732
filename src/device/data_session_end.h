// The orderly end of a job's data session.
#pragma once

#include <cstdint>
#include <string>

namespace analysis::rokt::device {

// Queues a DataChannelFinish behind all data of the job, waits until the queue is empty and lets go
// of the uploader, and with it of the session. `devIndexId` is the number that the finish message
// names. Returns 0, also for a job without an uploader, or the failure of the queueing; the
// uploader then stays registered. Blocks as long as the link does. Any thread but the uploader's.
int FinishDataSession(int32_t devIndexId, const std::string& jobId);

}  // namespace analysis::rokt::device
