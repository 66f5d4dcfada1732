// Double of the OS abstraction: forwards to the platform unless a test says otherwise.
#include "support/fake_mm.h"

#include <stdlib.h>

#include <memory>

#include "support/before_every_test.h"

namespace tiv::test {

namespace {

constexpr uint64_t NANO_PER_SECOND = 1000000000;
constexpr uint32_t SMALL_STACK = 131072;
constexpr uint64_t NANO_PER_MILLI = 1000000;

[[maybe_unused]] const bool fresh = BeforeEveryTest([] { FakeMm::Instance().Reset(); });

}  // namespace

FakeMm& FakeMm::Instance() {
    static FakeMm& mm = *std::unique_ptr<FakeMm>(new FakeMm).release();
    return mm;
}

MmFunctions& MmBehindTheInterface() { return FakeMm::Instance(); }

FakeMm::FakeMm() { Reset(); }

void FakeMm::Reset() {
    ForwardToPlatform();
    if (getenv("TIV_TEST_SMALL_STACKS") != nullptr) {
        UseSmallStacks();
    }
    calls.ClearFaults();
    calls.ClearCalls();
    calls.OnCall(nullptr);
    clock_ = 0;
}

void FakeMm::UseFakeClock(uint64_t nanoSeconds) {
    clock_ = nanoSeconds;
    mmSleep = [this](uint32_t milliSeconds) {
        clock_ += milliSeconds * NANO_PER_MILLI;
        return 0;
    };
    mmGetTickCount = [this] {
        const uint64_t now = clock_;
        return mmTimespec{static_cast<long>(now / NANO_PER_SECOND),
                          static_cast<long>(now % NANO_PER_SECOND)};
    };
}

void FakeMm::UseSmallStacks() {
    const auto create = mmCreateTaskWithThreadAttr;
    mmCreateTaskWithThreadAttr = [create](mmThread* handle, const mmUserBlock* block,
                                          const mmThreadAttr* attr) {
        mmThreadAttr small = *attr;
        small.threadStackFlag = 1;
        small.stackSize = SMALL_STACK;
        return create(handle, block, &small);
    };
}

void FakeMm::SkipSleeps() {
    mmSleep = [](uint32_t) { return 0; };
}

void FakeMm::SetLocalTime(const mmSystemTime& time) {
    mmGetLocalTime = [time](mmSystemTime* out) {
        *out = time;
        return 0;
    };
}

std::vector<uint32_t> FakeMm::Sleeps() const {
    std::vector<uint32_t> sleeps;
    for (const Call& call : calls.Calls("mmSleep")) {
        sleeps.push_back(static_cast<uint32_t>(call.Value("ms")));
    }
    return sleeps;
}

}  // namespace tiv::test
