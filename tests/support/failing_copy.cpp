// Bounds-checked copies that fail on demand, or only seem to copy.
#include "support/failing_copy.h"

#include "platform/bounds_checked.h"

namespace {

int callsToFailure = 0;  // 0: none fails
bool onlySeems = false;

bool Fails() { return callsToFailure > 0 && --callsToFailure == 0; }

}  // namespace

int32_t TestMemcpyS(void* dst, size_t room, const void* src, size_t count);
int32_t TestMemsetS(void* dst, size_t room, int32_t c, size_t count);

int32_t TestMemcpyS(void* dst, size_t room, const void* src, size_t count) {
    if (Fails()) {
        return tiv::test::COPY_ERROR;
    }
    return onlySeems ? 0 : memcpy_s(dst, room, src, count);
}

int32_t TestMemsetS(void* dst, size_t room, int32_t c, size_t count) {
    if (Fails()) {
        return tiv::test::COPY_ERROR;
    }
    return memset_s(dst, room, c, count);
}

namespace tiv::test {

FailingCopy::FailingCopy(int skip) { callsToFailure = skip + 1; }
FailingCopy::~FailingCopy() { callsToFailure = 0; }

SeemingCopies::SeemingCopies() { onlySeems = true; }
SeemingCopies::~SeemingCopies() { onlySeems = false; }

}  // namespace tiv::test
