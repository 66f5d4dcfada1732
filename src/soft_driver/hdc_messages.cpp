// The C functions of the link that deal in messages.
#include "soft_driver/exports.h"
#include "soft_driver/hdc_tables.h"
#include "soft_driver/settings.h"

using tiv::soft_driver::Fail;
using tiv::soft_driver::Guarded;
using tiv::soft_driver::HdcMessage;
using tiv::soft_driver::HdcSession;
using tiv::soft_driver::ProcessSettings;
using tiv::soft_driver::Settings;
using tiv::soft_driver::Table;

int32_t drvHdcAllocMsg(HDC_SESSION session, HDC_MSG* msg, int32_t count) {
    return Guarded([=] {
        const std::shared_ptr<HdcSession> owner = Table<HdcSession>().Find(session);
        if (owner == nullptr) {
            return Fail(EBADF);
        }
        if (msg == nullptr || count != 1) {
            return Fail(EINVAL);
        }
        *msg = Table<HdcMessage>().Add(std::make_shared<HdcMessage>(owner->Shelf()));
        return 0;
    });
}

int32_t drvHdcFreeMsg(HDC_MSG msg) {
    return Guarded([=] { return Table<HdcMessage>().Take(msg) == nullptr ? Fail(EBADF) : 0; });
}

int32_t drvHdcReuseMsg(HDC_MSG msg) {
    return Guarded([=] {
        const std::shared_ptr<HdcMessage> message = Table<HdcMessage>().Find(msg);
        if (message == nullptr) {
            return Fail(EBADF);
        }
        message->Reuse();
        return 0;
    });
}

int32_t drvHdcGetMsgBuffer(HDC_MSG msg, int32_t index, char** buf, int32_t* len) {
    return Guarded([=] {
        const std::shared_ptr<HdcMessage> message = Table<HdcMessage>().Find(msg);
        if (message == nullptr) {
            return Fail(EBADF);
        }
        if (buf == nullptr || len == nullptr || index != 0 || !message->Get(buf, len)) {
            return Fail(EINVAL);
        }
        return 0;
    });
}

int32_t drvHdcAddMsgBuffer(HDC_MSG msg, char* buf, int32_t len) {
    return Guarded([=] {
        const std::shared_ptr<HdcMessage> message = Table<HdcMessage>().Find(msg);
        if (message == nullptr) {
            return Fail(EBADF);
        }
        if (buf == nullptr || len < 1 || !message->Add(buf, len)) {
            return Fail(EINVAL);
        }
        return 0;
    });
}

int32_t halHdcRecv(HDC_SESSION session, HDC_MSG msg, int32_t bufLen, uint64_t flag, int32_t* count,
                   uint32_t timeout) {
    (void)bufLen;
    (void)timeout;
    return Guarded([=] {
        const std::shared_ptr<HdcSession> owner = Table<HdcSession>().Find(session);
        const std::shared_ptr<HdcMessage> message = Table<HdcMessage>().Find(msg);
        if (owner == nullptr || message == nullptr) {
            return Fail(EBADF);
        }
        if (count == nullptr || flag > HDC_FLAG_NO_WAIT) {
            return Fail(EINVAL);
        }
        *count = 0;
        const int32_t result = owner->Receive(*message, flag == HDC_FLAG_WAIT);
        *count = result == 0 ? 1 : 0;
        return result;
    });
}

int32_t halHdcSend(HDC_SESSION session, HDC_MSG msg, uint64_t flag, uint32_t timeout) {
    (void)timeout;
    return Guarded([=] {
        const std::shared_ptr<HdcSession> owner = Table<HdcSession>().Find(session);
        if (owner == nullptr) {
            return Fail(EBADF);
        }
        if (flag > HDC_FLAG_NO_WAIT) {
            return Fail(EINVAL);
        }
        const std::shared_ptr<HdcMessage> message = Table<HdcMessage>().Find(msg);
        return owner->Send(message.get(), flag == HDC_FLAG_WAIT);
    });
}

int32_t drvHdcGetCapacity(struct HdcCapacity* capacity) {
    return Guarded([=] {
        if (capacity == nullptr) {
            return Fail(EINVAL);
        }
        const Settings* settings = ProcessSettings();
        if (settings == nullptr) {
            return -1;
        }
        capacity->maxSegment = settings->segmentBytes;
        return 0;
    });
}
