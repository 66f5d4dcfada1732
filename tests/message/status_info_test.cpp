// Tests of the status record and of the response made from it.
#include "message/status_info.h"

#include "message/profiler.pb.h"
#include "support/failing_new.h"
#include "support/recorded_log_test.h"

namespace analysis::rokt::message {

class StatusInfoText : public tiv::test::RecordedLogTest {};
class ResponseOfStatus : public tiv::test::RecordedLogTest {};

TEST_F(StatusInfoText, FreshRecordSaysFailed) {
    const StatusInfo status;

    EXPECT_EQ(status.dev_id, "-1");
    EXPECT_EQ(status.status, 1);
    EXPECT_EQ(status.info, "");
}

TEST_F(StatusInfoText, ThreeFieldsAreWritten) {
    const Json object(StatusInfo().ToString());

    EXPECT_EQ(object.GetObject().size(), 3U);
    EXPECT_EQ(object.Find("dev_id")->ToString(), "\"-1\"");
    EXPECT_EQ(object.Find("status")->ToString(), "1");
    EXPECT_EQ(object.Find("info")->ToString(), "\"\"");
}

TEST_F(StatusInfoText, ThreeFieldsSurviveTheRoundTrip) {
    StatusInfo status;
    status.dev_id = "4";
    status.status = -7;
    status.info = "No Run";
    StatusInfo back;

    ASSERT_TRUE(back.FromString(status.ToString()));

    EXPECT_EQ(back.dev_id, "4");
    EXPECT_EQ(back.status, -7);
    EXPECT_EQ(back.info, "No Run");
}

TEST_F(StatusInfoText, TextWithoutDeviceLeavesTheDefault) {
    StatusInfo status;

    EXPECT_TRUE(status.FromString("{\"status\":0}"));

    EXPECT_EQ(status.dev_id, "-1");
    EXPECT_EQ(status.status, 0);
}

TEST_F(StatusInfoText, NullLeavesAPresetText) {
    StatusInfo status;
    status.info = "preset";

    EXPECT_TRUE(status.FromString("{\"info\":null}"));

    EXPECT_EQ(status.info, "preset");
}

TEST_F(StatusInfoText, BrokenTextNamesTheClassInTheError) {
    StatusInfo status;

    EXPECT_FALSE(status.FromString("[]"));

    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"StatusInfo ::FromString(): Input json string error"});
}

TEST_F(StatusInfoText, ClassName) { EXPECT_EQ(StatusInfo().GetClassName(), "StatusInfo"); }

TEST_F(ResponseOfStatus, StatusZeroIsSuccess) {
    StatusInfo status;
    status.status = 0;

    const auto response = CreateResponse(status);

    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->status(), proto::SUCCESS);
}

TEST_F(ResponseOfStatus, AnyOtherStatusIsFailed) {
    StatusInfo status;
    status.status = 2;
    EXPECT_EQ(CreateResponse(status)->status(), proto::FAILED);

    status.status = -1;
    EXPECT_EQ(CreateResponse(status)->status(), proto::FAILED);
}

TEST_F(ResponseOfStatus, MessageIsTheTextOfTheRecordAndTheRestStaysEmpty) {
    StatusInfo status;
    status.dev_id = "2";
    status.info = "start failed";

    const auto response = CreateResponse(status);

    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->message(), status.ToString());
    EXPECT_FALSE(response->has_hdr());
    EXPECT_EQ(response->jobid(), "");
}

TEST_F(ResponseOfStatus, NoMemoryGivesNullAndAnError) {
    const StatusInfo status;
    std::shared_ptr<proto::Response> response;
    {
        tiv::test::FailingNew failing;
        response = CreateResponse(status);
    }

    EXPECT_EQ(response, nullptr);
    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"make shared failed, message: std::bad_alloc"});
}

}  // namespace analysis::rokt::message
