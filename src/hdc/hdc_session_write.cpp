// Fragmentation of one whole buffer.
#include "hdc/hdc_session_write.h"

#include <algorithm>

#include "common/memory_utils.h"
#include "hdc/fragment.h"
#include "hdc/hdc_capacity.h"
#include "hdc/hdc_result.h"
#include "platform/bounds_checked.h"
#include "platform/log.h"

namespace {

constexpr int32_t MEMORY_COPY_FAILED = 3;

// The fragment buffer of one thread. It outlives a write and serves the next one: zeroing half a
// mebibyte for each buffer costs a good part of what sending it does. It grows to what the thread's
// largest write needs, a whole segment at most, so that a thread of small replies holds little.
class FragmentBuffer {
 public:
    FragmentBuffer() = default;
    ~FragmentBuffer() { IdeXfree(data_); }
    FragmentBuffer(const FragmentBuffer&) = delete;
    FragmentBuffer& operator=(const FragmentBuffer&) = delete;

    // At least `bytes`, or null.
    char* Reserve(uint32_t bytes) {
        if (bytes > size_) {
            IdeXfree(data_);
            data_ = static_cast<char*>(IdeXmalloc(bytes));
            size_ = data_ == nullptr ? 0 : bytes;
        }
        return data_;
    }

 private:
    char* data_ = nullptr;
    uint32_t size_ = 0;
};

thread_local FragmentBuffer threadFragment;

// One write on its way out.
struct Writing {
    HDC_SESSION session;
    HDC_MSG msg;
    uint32_t capacity;  // payload bytes of a full fragment
    uint32_t length;
    uint64_t flag;
    const char* buf;
    char* fragment;  // where fragments are put together; null: around the payload itself
    char* own;       // `buf` when its bytes may change for the time of the write
};

// One slice of the buffer.
struct Slice {
    uint32_t offset;
    uint32_t len;
    bool isLast;
};

void FillHeader(char* fragment, const Slice& slice) {
    StoreFragmentWord(fragment, slice.len);
    StoreFragmentWord(fragment + HDC_FRAGMENT_MAGIC_OFFSET, HDC_FRAGMENT_MAGIC);
    fragment[HDC_FRAGMENT_LAST_OFFSET] = slice.isLast ? 1 : 0;
}

int32_t FillFragment(const Writing& writing, const Slice& slice) {
    char* payload = writing.fragment + HDC_FRAGMENT_PAYLOAD_OFFSET;
    FillHeader(writing.fragment, slice);
    if (memcpy_s(payload, writing.capacity, writing.buf + slice.offset, slice.len) != 0) {
        TIV_LOGE("memory copy failed");
        return MEMORY_COPY_FAILED;
    }
    if (slice.offset == 0) {
        // The bytes behind the payload go out too: they must not be those of an earlier write.
        memset(payload + slice.len, 0, HDC_ROOM_BEHIND);
    }
    return IDE_DAEMON_OK;
}

int32_t SendFragment(const Writing& writing, char* fragment, uint32_t len) {
    const int32_t handedOver = static_cast<int32_t>(len + IDE_HDC_PACKET_HEADER_LEN);
    int32_t ret = drvHdcAddMsgBuffer(writing.msg, fragment, handedOver);
    if (ret != 0) {
        TIV_LOGE("Hdc Add Msg Buffer, error: %d", ret);
        return ret;
    }
    ret = halHdcSend(writing.session, writing.msg, writing.flag, 0);
    if (ret != 0) {
        TIV_LOGE("Hdc Send, error: %d", ret);
        return ret;
    }
    ret = drvHdcReuseMsg(writing.msg);
    if (ret != 0) {
        TIV_LOGE("Hdc Reuse Msg, error: %d", ret);
    }
    return ret;
}

// A fragment laid around its payload where that lies; gives the bytes underneath back when it goes.
class FragmentInPlace {
 public:
    FragmentInPlace(const Writing& writing, const Slice& slice)
        : start_(writing.own + slice.offset - HDC_FRAGMENT_PAYLOAD_OFFSET),
          tail_(writing.own + slice.offset + slice.len) {
        memcpy(underHeader_, start_, sizeof(underHeader_));
        memcpy(underTail_, tail_, sizeof(underTail_));
        char tail[HDC_ROOM_BEHIND];
        FillTail(writing, slice, tail);
        FillHeader(start_, slice);
        memcpy(tail_, tail, sizeof(tail));
    }
    ~FragmentInPlace() {
        memcpy(start_, underHeader_, sizeof(underHeader_));
        memcpy(tail_, underTail_, sizeof(underTail_));
    }
    FragmentInPlace(const FragmentInPlace&) = delete;
    FragmentInPlace& operator=(const FragmentInPlace&) = delete;

    char* Start() const { return start_; }

 private:
    // What stands behind a payload in a fragment buffer: the fragment before, zeros behind that.
    static void FillTail(const Writing& writing, const Slice& slice, char* tail) {
        for (uint32_t i = 0; i < HDC_ROOM_BEHIND; ++i) {
            const bool isCovered = slice.offset != 0 && slice.len + i < writing.capacity;
            tail[i] = isCovered ? writing.own[slice.offset - writing.capacity + slice.len + i] : 0;
        }
    }

    char* const start_;
    char* const tail_;
    char underHeader_[HDC_FRAGMENT_PAYLOAD_OFFSET];
    char underTail_[HDC_ROOM_BEHIND];
};

int32_t SendSlice(const Writing& writing, const Slice& slice) {
    if (writing.own != nullptr) {
        const FragmentInPlace fragment(writing, slice);
        return SendFragment(writing, fragment.Start(), slice.len);
    }
    const int32_t ret = FillFragment(writing, slice);
    return ret == IDE_DAEMON_OK ? SendFragment(writing, writing.fragment, slice.len) : ret;
}

// 0, or the code of the step that ended the loop.
int32_t SendFragments(const Writing& writing) {
    uint32_t remaining = writing.length;
    while (remaining != 0) {
        const bool isLast = writing.capacity >= remaining;
        const uint32_t len = isLast ? remaining : writing.capacity;
        const int32_t ret = SendSlice(writing, {writing.length - remaining, len, isLast});
        if (ret != IDE_DAEMON_OK) {
            return ret;
        }
        remaining -= len;
    }
    return IDE_DAEMON_OK;
}

int32_t FreeMsg(HDC_MSG msg) {
    const int32_t ret = drvHdcFreeMsg(msg);
    if (ret != 0) {
        TIV_LOGE("Hdc Free Msg, error: %d", ret);
        return IDE_DAEMON_ERROR;
    }
    return IDE_DAEMON_OK;
}

// Asks for the segment and makes the message. False when the write cannot begin.
bool Begin(Writing& writing, uint32_t* segment) {
    if (writing.session == nullptr || writing.buf == nullptr || writing.length == 0) {
        TIV_LOGE("Invalid Parameter");
        return false;
    }
    int32_t ret = HdcCapacity(segment);
    if (ret != IDE_DAEMON_OK) {
        TIV_LOGE("Hdc Capacity Failed, err: %d", ret);
        return false;
    }
    ret = drvHdcAllocMsg(writing.session, &writing.msg, 1);
    if (ret != 0 || writing.msg == nullptr) {
        TIV_LOGE("Hdc Alloc Msg, error: %d", ret);
        return false;
    }
    writing.capacity = *segment - IDE_HDC_PACKET_HEADER_LEN;
    return true;
}

int32_t SendAndFree(const Writing& writing) {
    const int32_t ret = SendFragments(writing);
    if (FreeMsg(writing.msg) != IDE_DAEMON_OK) {
        return IDE_DAEMON_ERROR;
    }
    return ret == IDE_DAEMON_OK ? IDE_DAEMON_OK : IDE_DAEMON_ERROR;
}

}  // namespace

int32_t HdcSessionWrite(HDC_SESSION session, const void* buf, uint32_t length, uint64_t flag) {
    Writing writing{session, nullptr, 0, length, flag, static_cast<const char*>(buf),
                    nullptr, nullptr};
    uint32_t segment = 0;
    if (!Begin(writing, &segment)) {
        return IDE_DAEMON_ERROR;
    }
    const uint32_t fragmentSize = std::min(writing.capacity, length) + IDE_HDC_PACKET_HEADER_LEN;
    writing.fragment = threadFragment.Reserve(fragmentSize);
    if (writing.fragment == nullptr) {
        TIV_LOGE("[HdcSessionWrite]IdeXmalloc %lu Size failed",
                 static_cast<unsigned long>(segment));
        (void)FreeMsg(writing.msg);
        return IDE_DAEMON_ERROR;
    }
    return SendAndFree(writing);
}

int32_t HdcSessionWriteInPlace(HDC_SESSION session, char* buf, uint32_t length, uint64_t flag) {
    Writing writing{session, nullptr, 0, length, flag, buf, nullptr, buf};
    uint32_t segment = 0;
    if (!Begin(writing, &segment)) {
        return IDE_DAEMON_ERROR;
    }
    return SendAndFree(writing);
}
