// The words of a refusal: the task's own, and those of the handler when the task says nothing.
#include <gtest/gtest.h>

#include <vector>

#include "device/job_callback.h"
#include "device/prof_msg_handler.h"
#include "device/session_reply.h"
#include "device/task_manager.h"
#include "message/job_context.h"

namespace {

using analysis::rokt::device::IJobCallback;
using analysis::rokt::message::StatusInfo;
namespace proto = analysis::rokt::proto;

// Fails at everything, with the words that it was given.
class FailingTask : public IJobCallback {
 public:
    int OnJobStart(const std::shared_ptr<proto::JobStartReq>&, StatusInfo& status) override {
        return Fail(status);
    }
    int OnJobEnd(StatusInfo& status) override { return Fail(status); }
    int Start(const std::shared_ptr<proto::ReplayStartReq>&, StatusInfo& status) override {
        return Fail(status);
    }
    int End(const std::shared_ptr<proto::ReplayStopReq>&, StatusInfo& status) override {
        return Fail(status);
    }
    int OnConnectionReset() override { return 0; }
    int32_t GetDevId() override { return 3; }

    std::string words;

 private:
    int Fail(StatusInfo& status) const {
        status.status = 0;  // the handler tells the host what the result says
        status.info = words;
        return 7;
    }
};

std::shared_ptr<FailingTask> task = std::make_shared<FailingTask>();
std::vector<StatusInfo> replies;

}  // namespace

namespace analysis::rokt::device {

int SendReply(const std::string&, int32_t,
              const std::shared_ptr<google::protobuf::Message>& message) {
    const auto response = std::dynamic_pointer_cast<proto::Response>(message);
    StatusInfo status;
    EXPECT_TRUE(response != nullptr && status.FromString(response->message()));
    replies.push_back(status);
    return 1;
}

std::shared_ptr<IJobCallback> TaskManager::CreateTask(
    int32_t, const std::string&, const std::shared_ptr<transport::ITransport>&) {
    return task;
}

std::shared_ptr<IJobCallback> TaskManager::GetTask(const std::string&) { return task; }

bool TaskManager::DeleteTask(const std::string&) { return true; }

}  // namespace analysis::rokt::device

namespace tiv::test {
namespace {

using namespace analysis::rokt::device;

template <class Request>
std::shared_ptr<Request> WithContext() {
    analysis::rokt::message::JobContext context;
    context.dev_id = "0";
    context.job_id = "job";
    auto request = std::make_shared<Request>();
    request->mutable_hdr()->set_job_ctx(context.ToString());
    return request;
}

// The words of the replies to the four requests; each has to refuse.
std::vector<std::string> WordsOfTheReplies() {
    replies.clear();
    JobStartHandler(nullptr).OnNewMessage(WithContext<proto::JobStartReq>());
    JobStopHandler().OnNewMessage(WithContext<proto::JobStopReq>());
    ReplayStartHandler().OnNewMessage(WithContext<proto::ReplayStartReq>());
    ReplayStopHandler().OnNewMessage(WithContext<proto::ReplayStopReq>());
    std::vector<std::string> words;
    for (const StatusInfo& reply : replies) {
        EXPECT_EQ(reply.status, 1) << reply.info;
        words.push_back(reply.info);
    }
    return words;
}

TEST(ReplyText, OfASilentTaskIsTheHandlersOwn) {
    task->words.clear();

    EXPECT_EQ(WordsOfTheReplies(), (std::vector<std::string>{"start job failed", "stop job failed",
                                                             "start failed", "stop failed"}));
}

TEST(ReplyText, OfATaskWithWordsIsTheTasks) {
    task->words = "no room";

    EXPECT_EQ(WordsOfTheReplies(), std::vector<std::string>(4, "no room"));
}

}  // namespace
}  // namespace tiv::test
