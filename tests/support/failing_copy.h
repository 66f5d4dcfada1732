// Bounds-checked copies that fail on demand, or only seem to copy. They stand in the sources that a
// test program gives to tiv_failing_copies.
#pragma once

#include <cstdint>

namespace tiv::test {

// What a failed copy gives.
constexpr int32_t COPY_ERROR = 34;

// While it lives, the call of memcpy_s or memset_s behind the first `skip` fails and leaves
// everything alone.
class FailingCopy {
 public:
    explicit FailingCopy(int skip = 0);
    ~FailingCopy();
    FailingCopy(const FailingCopy&) = delete;
    FailingCopy& operator=(const FailingCopy&) = delete;
};

// While it lives, memcpy_s succeeds without touching any memory.
class SeemingCopies {
 public:
    SeemingCopies();
    ~SeemingCopies();
    SeemingCopies(const SeemingCopies&) = delete;
    SeemingCopies& operator=(const SeemingCopies&) = delete;
};

}  // namespace tiv::test
