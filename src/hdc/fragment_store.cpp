// The growing buffer behind a read.
#include "hdc/fragment_store.h"

#include <algorithm>
#include <cstdlib>

#include "common/memory_utils.h"
#include "hdc/fragment.h"
#include "hdc/hdc_result.h"
#include "platform/bounds_checked.h"
#include "platform/log.h"

namespace {

// Slack above which the final buffer is cut to its size.
constexpr size_t TRIM_LIMIT = 64U << 10;
// A peer's long buffer makes later reads reserve at most this much before their bytes arrive.
constexpr size_t EXPECTED_LIMIT = 16U << 20;

// Size of the last buffer of several fragments that this thread read.
thread_local size_t expectedLength = 0;

}  // namespace

FragmentStore::~FragmentStore() {
    if (data_ != nullptr) {
        Clear();
    }
}

bool FragmentStore::Store(const char* fragment, size_t bytes) {
    if (bytes < HDC_FRAGMENT_PAYLOAD_OFFSET) {
        return false;
    }
    const uint32_t len = LoadFragmentWord(fragment);
    if (len > bytes - HDC_FRAGMENT_PAYLOAD_OFFSET ||
        LoadFragmentWord(fragment + HDC_FRAGMENT_MAGIC_OFFSET) != HDC_FRAGMENT_MAGIC) {
        return false;
    }
    if (!HasRoomInLength(len)) {
        return false;
    }
    if (len == 0) {
        return true;
    }
    if (!Reserve(used_ + len, fragment[HDC_FRAGMENT_LAST_OFFSET] == 1)) {
        TIV_LOGE("Ide Xrmalloc Failed");
        return false;
    }
    const int32_t ret =
        memcpy_s(data_ + used_, capacity_ - used_, fragment + HDC_FRAGMENT_PAYLOAD_OFFSET, len);
    if (ret != 0) {
        TIV_LOGE("memory copy failed, ret: %d", ret);
        return false;
    }
    used_ += len;
    passLength_ += len;
    return true;
}

bool FragmentStore::HasRoomInLength(uint32_t len) const {
    if (!FitsInBufferLength(passLength_, len)) {
        TIV_LOGE("buf_len : %u bytes, packet->len: %u bytes", static_cast<uint32_t>(passLength_),
                 len);
        return false;
    }
    return FitsInBufferLength(used_, len);
}

bool FragmentStore::Reserve(size_t bytes, bool isLast) {
    if (bytes <= capacity_) {
        return true;
    }
    isLong_ = isLong_ || !isLast;
    size_t wanted = bytes;
    if (data_ != nullptr) {
        wanted = std::max(bytes, 2 * capacity_);
    } else if (!isLast) {
        wanted = std::max(bytes, expectedLength);
    }
    // What is reserved beyond the bytes at hand may be refused; they themselves may not.
    if (Grow(wanted) || (wanted > bytes && Grow(bytes))) {
        return true;
    }
    TIV_LOGE("ran out of memory while trying to allocate %lu bytes",
             static_cast<unsigned long>(bytes));
    return false;
}

// Not IdeXrmalloc: it zeroes the new block and copies the old one, and a large block grows in place
// here. IdeXfree is the counterpart of both.
bool FragmentStore::Grow(size_t capacity) {
    void* const grown = realloc(data_, capacity);
    if (grown == nullptr) {
        return false;
    }
    data_ = static_cast<char*>(grown);
    capacity_ = capacity;
    return true;
}

bool FragmentStore::CanMerge(void* const* recvBuf, const uint32_t* recvLen) const {
    if (recvLen == nullptr) {
        TIV_LOGE("recvLen is nullptr");
        return false;
    }
    if (used_ == 0) {
        TIV_LOGE("bufLen is nullptr");
        return false;
    }
    if (recvBuf == nullptr) {
        TIV_LOGE("recvBuf is nullptr");
        return false;
    }
    return true;
}

int32_t FragmentStore::Merge(void** recvBuf, uint32_t* recvLen) {
    if (!CanMerge(recvBuf, recvLen)) {
        return IDE_DAEMON_ERROR;
    }
    Trim();
    *recvBuf = data_;
    *recvLen = static_cast<uint32_t>(used_);
    data_ = nullptr;
    Clear();
    return IDE_DAEMON_OK;
}

void FragmentStore::Trim() {
    if (isLong_) {
        const size_t rounded = (used_ + TRIM_LIMIT - 1) / TRIM_LIMIT * TRIM_LIMIT;
        expectedLength = std::min(rounded, EXPECTED_LIMIT);
    }
    if (capacity_ - used_ <= TRIM_LIMIT) {
        return;
    }
    void* trimmed = realloc(data_, used_);
    if (trimmed != nullptr) {
        data_ = static_cast<char*>(trimmed);
    }
}

void FragmentStore::Clear() {
    TIV_LOGD("iovec list free begin");
    IdeXfree(data_);
    data_ = nullptr;
    capacity_ = 0;
    used_ = 0;
    isLong_ = false;
    TIV_LOGD("iovec list free end");
}
