// Tests of the component's three functions over sessions of the driver.
#include "device/prof_device_core.h"

#include <dirent.h>

#include <cstring>
#include <new>
#include <vector>

#include "device/collection_entry.h"
#include "device/device_fixture.h"
#include "device/task_manager.h"
#include "support/failing_new.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace tiv::test {
namespace {

using analysis::rokt::device::CollectionEntry;
using analysis::rokt::device::TaskManager;

// A request packet with `value`, or with another length than its value has.
class Request {
 public:
    explicit Request(const std::string& value) : Request(value, value.size()) {}
    Request(const std::string& value, size_t len) : bytes_(IDE_TLV_HEADER_LEN + value.size() + 1) {
        auto* request = reinterpret_cast<IdeTlvReq*>(bytes_.data());
        request->type = IDE_PROFILING_REQ;
        request->len = static_cast<uint32_t>(len);
        std::memcpy(request->value, value.data(), value.size());
    }
    const IdeTlvReq* Get() const { return reinterpret_cast<const IdeTlvReq*>(bytes_.data()); }

 private:
    std::vector<char> bytes_;
};

// The value inside a driver message that holds one packet in one fragment.
std::string ValueOf(const std::string& message) {
    uint32_t payload = 0;
    std::memcpy(&payload, message.data(), sizeof(payload));
    return message.substr(9 + IDE_TLV_HEADER_LEN, payload - IDE_TLV_HEADER_LEN);
}

class Component : public DeviceTest {
 protected:
    int Process(HDC_SESSION onSession, const std::string& value) {
        return IdeDeviceProfileProcess(onSession, Request(value).Get());
    }
    size_t Closes() const { return driver.calls.Count("drvHdcSessionClose"); }

    FakeDriver& driver = FakeDriver::Instance();
    HDC_SESSION session = driver.NewSession(2, 0);
    RecordedLog& log = RecordedLog::Instance();
};

TEST_F(Component, NullSessionIsRefused) {
    EXPECT_EQ(Process(nullptr, "value"), -1);

    EXPECT_TRUE(log.Has('V', "Begin to process profiling"));
    EXPECT_TRUE(log.Has('E', "HDC session is invalid"));
    EXPECT_TRUE(log.Has('V', "End to process profiling, ret:-1"));
    EXPECT_EQ(Closes(), 0u);
}

TEST_F(Component, NullRequestClosesTheSession) {
    EXPECT_EQ(IdeDeviceProfileProcess(session, nullptr), -1);

    EXPECT_TRUE(log.Has('E', "HDC request is invalid"));
    EXPECT_TRUE(driver.IsClosed(session));
}

TEST_F(Component, EmptyRequestClosesTheSessionWithoutAReply) {
    EXPECT_EQ(Process(session, ""), -1);

    EXPECT_TRUE(log.Has('E', "HDC request is invalid"));
    EXPECT_TRUE(driver.IsClosed(session));
    EXPECT_TRUE(driver.Sent(session).empty());
}

TEST_F(Component, RequestAbove3MiBIsRefused) {
    EXPECT_EQ(Process(session, std::string(3145729, 'x')), -1);

    EXPECT_TRUE(log.Has('E', "HDC request is invalid"));
    EXPECT_TRUE(driver.IsClosed(session));
    EXPECT_TRUE(driver.Sent(session).empty());
}

TEST_F(Component, RequestOf3MiBIsHandled) {
    EXPECT_EQ(Process(session, std::string(3145728, 'x')), -1);

    EXPECT_FALSE(log.Has('E', "HDC request is invalid"));
    ASSERT_EQ(driver.Sent(session).size(), 1u);
    EXPECT_EQ(AnswerOf(ValueOf(driver.Sent(session).at(0))).info, "Failed to decode message");
}

TEST_F(Component, SessionWithoutDeviceIsClosed) {
    driver.calls.Return("halHdcGetSessionAttr", 1);

    EXPECT_EQ(Process(session, "value"), -1);

    EXPECT_TRUE(log.Contains('E', "IdeGetDevIdBySession failed, err: "));
    EXPECT_TRUE(driver.Sent(session).empty());
    EXPECT_TRUE(driver.IsClosed(session));
}

TEST_F(Component, DeviceAbove63IsRefused) {
    const HDC_SESSION beyond = driver.NewSession(64, 0);

    EXPECT_EQ(Process(beyond, "value"), -1);

    EXPECT_TRUE(log.Has('E', "[IdeDeviceProfileProcess]devIndexId is not valid! devIndexId: 64"));
    EXPECT_TRUE(driver.IsClosed(beyond));
    EXPECT_TRUE(driver.Sent(beyond).empty());
}

TEST_F(Component, SessionThatGivesNoTransportIsClosed) {
    Fault second;
    second.function = "halHdcGetSessionAttr";
    second.match = {{"attr", "0"}};
    second.skip = 1;
    second.result = 1;
    driver.calls.Add(second);

    EXPECT_EQ(Process(session, "value"), -1);

    EXPECT_TRUE(log.Has('E', "create HDC transport failed"));
    EXPECT_TRUE(driver.IsClosed(session));
}

TEST_F(Component, FailedQuestionForTheContainerClosesOnceWithoutAReply) {
    Fault container;
    container.function = "halHdcGetSessionAttr";
    container.match = {{"attr", "3"}};
    container.result = 1;
    driver.calls.Add(container);

    EXPECT_EQ(Process(session, "value"), -1);

    EXPECT_TRUE(log.Contains('E', "Ide get vfid by session failed, ret="));
    EXPECT_EQ(Closes(), 1u);
    EXPECT_TRUE(driver.Sent(session).empty());
}

TEST_F(Component, CallerInAContainerGetsTheBareText) {
    const HDC_SESSION contained = driver.NewSession(2, 1);

    EXPECT_EQ(Process(contained, "value"), 0);

    EXPECT_TRUE(log.Has('W', "Prohibit container operate profiling, vfId=1."));
    ASSERT_EQ(driver.Sent(contained).size(), 1u);
    EXPECT_EQ(ValueOf(driver.Sent(contained).at(0)), "MESSAGE_CONTAINER_NO_SUPPORT");
    EXPECT_TRUE(driver.IsClosed(contained));
}

TEST_F(Component, LostTextToAContainerIsAnError) {
    const HDC_SESSION contained = driver.NewSession(2, 1);
    driver.calls.Return("halHdcSend", 1);

    EXPECT_EQ(Process(contained, "value"), -1);

    EXPECT_TRUE(log.Has('E', "Transport send buffer failed."));
}

TEST_F(Component, RefusedHandshakeAnswersAndThenClosesOnce) {
    EXPECT_EQ(Process(session, "garbage"), -1);

    EXPECT_TRUE(log.Has('I', "device 2 step handle function"));
    ASSERT_EQ(driver.Sent(session).size(), 1u);
    EXPECT_EQ(AnswerOf(ValueOf(driver.Sent(session).at(0))).info, "Failed to decode message");
    EXPECT_EQ(Closes(), 1u);
}

TEST_F(Component, RefusedControlHandshakeIsHeardOnItsSession) {
    EXPECT_EQ(Process(session, Encode(CtrlHandshake("job", 64, ""))), -1);

    ASSERT_EQ(driver.Sent(session).size(), 1u);
    EXPECT_FALSE(AnswerOf(ValueOf(driver.Sent(session).at(0))).success);
    EXPECT_TRUE(driver.IsClosed(session));
}

TEST_F(Component, AcceptedControlSessionStaysOpen) {
    EXPECT_EQ(Process(session, Encode(CtrlHandshake("job", 2, ""))), 0);

    EXPECT_TRUE(log.Has('V', "End to process profiling, ret:0"));
    EXPECT_TRUE(AnswerOf(ValueOf(driver.Sent(session).at(0))).success);
    EXPECT_FALSE(driver.IsClosed(session));
}

TEST_F(Component, OnlyTheLengthOfTheRequestIsTaken) {
    const std::string value = Encode(JobStart("", "")) + "behind the request";
    const Request request(value, value.size() - 18);

    EXPECT_EQ(IdeDeviceProfileProcess(session, request.Get()), -1);

    EXPECT_EQ(AnswerOf(ValueOf(driver.Sent(session).at(0))).info, "unknown message");
}

TEST_F(Component, RequestThatDoesNotFitInMemoryLetsTheSessionGo) {
    const Request request(std::string(1000000, 'x'));
    FailNextNewOfAtLeast(1000000);

    EXPECT_EQ(IdeDeviceProfileProcess(session, request.Get()), -1);

    FailNextNewOfAtLeast(0);
    EXPECT_TRUE(driver.IsClosed(session));
    EXPECT_TRUE(log.Has('V', "End to process profiling, ret:-1"));
}

TEST_F(Component, ExceptionBeforeTheTransportClosesTheSession) {
    driver.calls.OnCall([](const Call& call) {
        if (call.function == "halHdcGetSessionAttr") {
            throw std::bad_alloc();
        }
    });

    EXPECT_EQ(Process(session, "value"), -1);

    EXPECT_TRUE(driver.IsClosed(session));
    EXPECT_EQ(Closes(), 1u);
    EXPECT_TRUE(log.Has('V', "End to process profiling, ret:-1"));
}

TEST_F(Component, CleanupLeavesNoSessionAndNoTask) {
    Process(session, Encode(CtrlHandshake("job", 2, "")));

    EXPECT_EQ(IdeDeviceProfileCleanup(), 0);

    EXPECT_TRUE(log.Has('V', "Begin to cleanup profiling"));
    EXPECT_TRUE(log.Has('V', "End to cleanup profiling, ret:0"));
    EXPECT_TRUE(driver.IsClosed(session));
    EXPECT_EQ(TaskManager::Instance().GetTask("2_job"), nullptr);
    EXPECT_TRUE(log.Has('E', "TaskManager is not inited yet"));
}

TEST_F(Component, CleanupThatWorksReportsNoError) {
    EXPECT_EQ(IdeDeviceProfileCleanup(), 0);

    EXPECT_EQ(log.CountOf('E'), 0u);
}

TEST_F(Component, CleanupEndsSessionsBeforeTasks) {
    const auto transport = std::make_shared<MemoryTransport>();
    ASSERT_NE(TaskManager::Instance().CreateTask(2, "2_job", transport), nullptr);
    log.Clear();

    EXPECT_EQ(IdeDeviceProfileCleanup(), 0);

    EXPECT_EQ(log.OwnTexts('I'),
              (std::vector<std::string>{"uinit Collection Entry.",
                                        "receive connection reset, _is_started:0"}));
}

TEST_F(Component, InitEmptiesTheProfilerDirectoryAndKeepsIt) {
    static mmDirent dir = {DT_DIR, "sub"};
    static mmDirent file = {DT_REG, "file"};
    static mmDirent* entries[] = {&dir, &file};
    FakeMm::Instance().mmScandir = [](const char*, mmDirent*** list, mmFilter, mmSort) {
        *list = entries;
        return 2;
    };

    EXPECT_EQ(IdeDeviceProfileInit(), 0);

    EXPECT_EQ(PathsOf("mmScandir"), std::vector<std::string>{"/usr/local/profiler/"});
    EXPECT_EQ(PathsOf("mmRmdir"), std::vector<std::string>{"/usr/local/profiler/sub"});
    EXPECT_EQ(PathsOf("mmUnlink"), std::vector<std::string>{"/usr/local/profiler/file"});
    EXPECT_TRUE(log.Has('V', "Begin to init profiling"));
    EXPECT_TRUE(log.Has('V', "Begin to init Collection Entry"));
    EXPECT_TRUE(log.Has('V', "End to init profiling, ret:0"));
}

TEST_F(Component, ExceptionDuringInitFailsIt) {
    IdeDeviceProfileCleanup();
    driver.calls.OnCall([](const Call& call) {
        if (call.function == "drvGetPlatformInfo") {
            throw std::bad_alloc();
        }
    });

    EXPECT_EQ(IdeDeviceProfileInit(), -1);

    EXPECT_TRUE(log.Has('E', "Init of profiling failed: std::bad_alloc"));
    EXPECT_TRUE(log.Has('V', "End to init profiling, ret:-1"));
}

TEST_F(Component, InitFailsWhenTheDriverDoesNotTellTheSide) {
    IdeDeviceProfileCleanup();
    driver.calls.Return("drvGetPlatformInfo", 1);

    EXPECT_EQ(IdeDeviceProfileInit(), -1);

    EXPECT_TRUE(log.Has('E', "CollectionEntry instance init failed"));
    EXPECT_TRUE(log.Has('V', "End to init profiling, ret:-1"));
    EXPECT_EQ(TaskManager::Instance().GetTask("x"), nullptr);
    EXPECT_TRUE(log.Has('E', "TaskManager is not inited yet"));
}

TEST_F(Component, HandshakeAfterAFailedInitClosesWithoutAReply) {
    IdeDeviceProfileCleanup();
    driver.calls.Return("drvGetPlatformInfo", 1);
    static_cast<void>(IdeDeviceProfileInit());

    EXPECT_EQ(Process(session, Encode(CtrlHandshake("job", 2, ""))), -1);

    EXPECT_TRUE(log.Has('E', "Collection Entry was not inited."));
    EXPECT_TRUE(driver.Sent(session).empty());
    EXPECT_TRUE(driver.IsClosed(session));
}

}  // namespace
}  // namespace tiv::test
