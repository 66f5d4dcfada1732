// One channel between its start and its stop.
#include "soft_driver/channel.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <cinttypes>
#include <exception>

#include "soft_driver/channel_header.h"
#include "soft_driver/channel_writer.h"
#include "soft_driver/notices.h"

namespace tiv::soft_driver {
namespace {

constexpr uint64_t ENDLESS = 1ULL << 62;

// By the number of the kind.
constexpr std::array<const char*, 4> KIND_NAMES = {"silent", "perf", "counter", "replay"};

const char* KindName(SourceKind kind) { return KIND_NAMES[static_cast<size_t>(kind)]; }

// The program's signals are for the program's threads.
class SignalsBlocked {
 public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        (void)pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { (void)pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

 private:
    sigset_t before_{};
};

}  // namespace

Channel::Channel(uint32_t deviceId, const ChannelSettings& settings, ReadySet& ready)
    : deviceId_(deviceId), settings_(settings), ready_(ready), source_(MakeSource(settings)) {}

Channel::~Channel() { Stop(); }

bool Channel::Prepare(const StartRecord& start) {
    if (source_ != nullptr) {
        if (!source_->Prepare(start)) {
            return false;
        }
        auto ring = std::make_unique<RingData>(settings_.ringBytes);
        ring_ = ring.get();
        data_ = std::move(ring);
        header_ = BuildChannelHeader(settings_, source_->Describe());
    } else if (settings_.source.kind == SourceKind::COUNTER) {
        SourceDescription numbers;
        numbers.recordBytes = sizeof(uint64_t);
        header_ = BuildChannelHeader(settings_, numbers);
        data_ = std::make_unique<CounterData>(header_);
        const uint64_t limit = settings_.source.limitBytes;
        madeByReads_ = header_.size() + (limit == 0 ? ENDLESS : limit);
    }
    return true;
}

void Channel::Open() { entry_ = ready_.Open({deviceId_, settings_.id}, settings_.holdBackBytes); }

void Channel::Begin() {
    MutexLock life(lifeMutex_);
    if (stopped_) {
        return;
    }
    if (ring_ == nullptr) {
        if (madeByReads_ > 0) {
            ready_.Add(entry_, madeByReads_);
        }
        return;
    }
    ChannelWriter writer(ring_->Ring(), ready_, entry_);
    (void)writer.TryAppend(header_.data(), header_.size());  // an empty ring has room
    const SignalsBlocked blocked;
    thread_ = std::thread([this] { RunSource(); });
}

void Channel::RunSource() {
    (void)pthread_setname_np(pthread_self(), "tiv_drv_chan");
    ChannelWriter writer(ring_->Ring(), ready_, entry_);
    try {
        source_->Run(writer);
    } catch (const std::exception& error) {
        Warn("source ended: device=%u channel=%u: %s", deviceId_, settings_.id, error.what());
    }
}

int32_t Channel::Read(char* out, uint32_t bytes) {
    MutexLock lock(readMutex_);
    uint64_t readable = 0;
    if (!ready_.Readable(entry_, &readable)) {
        return PROF_STOPPED_ALREADY;
    }
    const uint64_t count = std::min<uint64_t>({readable, bytes, INT32_MAX});
    if (count > 0) {
        data_->Read(out, count);
    }
    ready_.Take(entry_, count);
    delivered_ += count;
    return static_cast<int32_t>(count);
}

int32_t Channel::Flush(uint32_t* bytes) {
    uint64_t flushed = 0;
    if (!ready_.Flush(entry_, &flushed)) {
        return PROF_STOPPED_ALREADY;
    }
    *bytes = static_cast<uint32_t>(flushed);
    return 0;
}

void Channel::Stop() {
    MutexLock life(lifeMutex_);
    if (entry_ == nullptr || stopped_) {
        return;
    }
    stopped_ = true;
    {
        MutexLock lock(readMutex_);  // a read that has begun counts as read
        ready_.Close(entry_);
    }
    if (thread_.joinable()) {
        thread_.join();
    }
    Report();
}

void Channel::Report() {
    if (data_ == nullptr) {
        return;
    }
    const uint64_t lost = madeByReads_ > 0 ? 0 : ready_.Used(entry_);
    const uint64_t dropped = source_ == nullptr ? 0 : source_->Dropped();
    MutexLock lock(readMutex_);
    Inform("channel stopped: device=%u channel=%u source=%s header=%zu delivered=%" PRIu64
           " lost=%" PRIu64 " dropped=%" PRIu64,
           deviceId_, settings_.id, KindName(settings_.source.kind), header_.size(), delivered_,
           lost, dropped);
}

}  // namespace tiv::soft_driver
