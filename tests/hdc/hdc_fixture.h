// What the tests of the session layer share: one open session, and fragments written byte by byte.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "common/memory_utils.h"
#include "hdc/hdc_api.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace tiv::test {

inline std::string Word(uint32_t value) {
    return std::string(reinterpret_cast<const char*>(&value), sizeof(value));
}

// A fragment as a correct peer sends it: three bytes follow the payload.
inline std::string Fragment(const std::string& payload, bool isLast, uint32_t magic = 176) {
    return Word(static_cast<uint32_t>(payload.size())) + Word(magic) +
           std::string(1, isLast ? '\1' : '\0') + payload + std::string(3, '\0');
}

// Text in which no two neighbourhoods are alike.
inline std::string Pattern(size_t size) {
    std::string text(size, '\0');
    for (size_t i = 0; i < size; ++i) {
        text[i] = static_cast<char>((i * 131 + i / 251) & 0xFF);
    }
    return text;
}

class HdcFixture : public testing::Test {
 protected:
    HdcFixture() {
        driver.Reset();
        FakeMm::Instance().Reset();
        FakeMm::Instance().SkipSleeps();
        session = driver.NewSession();
        driver.calls.ClearCalls();
        log.Clear();
    }

    // Reads one whole buffer into `received`.
    int32_t Read(bool wait = true) {
        void* buf = nullptr;
        uint32_t len = 0;
        const int32_t ret = wait ? HdcRead(session, &buf, &len) : HdcReadNb(session, &buf, &len);
        received.assign(static_cast<const char*>(buf), len);
        IdeXfree(buf);
        return ret;
    }

    int32_t Write(const std::string& bytes) {
        return HdcWrite(session, bytes.data(), static_cast<int32_t>(bytes.size()));
    }

    // What was sent goes to another session, which is read from then on.
    void TurnSessionRound() {
        const HDC_SESSION far = driver.NewSession();
        for (const std::string& message : driver.Sent(session)) {
            driver.PushMessage(far, message);
        }
        session = far;
    }

    FakeDriver& driver = FakeDriver::Instance();
    RecordedLog& log = RecordedLog::Instance();
    HDC_SESSION session = nullptr;
    std::string received;
};

}  // namespace tiv::test
