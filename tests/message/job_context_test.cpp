// Tests of the job context and of the text form that all records share.
#include "message/job_context.h"

#include "support/recorded_log_test.h"

namespace analysis::rokt::message {

class JobContextText : public tiv::test::RecordedLogTest {};

namespace {

JobContext FilledContext() {
    JobContext context;
    context.result_dir = "/tmp/r";
    context.module = "m";
    context.tag = "t";
    context.dev_id = "3";
    context.job_id = "job-1";
    context.chunkStartTime = 2147483647;
    context.chunkEndTime = 2147483646;
    context.dataModule = 5;
    context.stream_enabled = "on";
    return context;
}

// Overrides only what a record must.
struct PlainRecord : public BaseInfo {
    void ToObject(Json&) const override {}
    void FromObject(const Json&) override {}
};

}  // namespace

TEST_F(JobContextText, FreshContextIsEmpty) {
    const JobContext context;

    EXPECT_EQ(context.result_dir + context.module + context.tag + context.dev_id + context.job_id +
                  context.stream_enabled,
              "");
    EXPECT_EQ(context.chunkStartTime, 0U);
    EXPECT_EQ(context.chunkEndTime, 0U);
    EXPECT_EQ(context.dataModule, 0);
}

TEST_F(JobContextText, NineFieldsSurviveTheRoundTrip) {
    JobContext back;

    ASSERT_TRUE(back.FromString(FilledContext().ToString()));

    EXPECT_EQ(back.result_dir, "/tmp/r");
    EXPECT_EQ(back.module, "m");
    EXPECT_EQ(back.tag, "t");
    EXPECT_EQ(back.dev_id, "3");
    EXPECT_EQ(back.job_id, "job-1");
    EXPECT_EQ(back.chunkStartTime, 2147483647U);
    EXPECT_EQ(back.chunkEndTime, 2147483646U);
    EXPECT_EQ(back.dataModule, 5);
    EXPECT_EQ(back.stream_enabled, "on");
}

TEST_F(JobContextText, EmptyFieldsAreWrittenToo) {
    const Json object(JobContext().ToString());

    EXPECT_EQ(object.GetObject().size(), 9U);
    EXPECT_EQ(object.Find("result_dir")->ToString(), "\"\"");
    EXPECT_EQ(object.Find("module")->ToString(), "\"\"");
    EXPECT_EQ(object.Find("tag")->ToString(), "\"\"");
    EXPECT_EQ(object.Find("dev_id")->ToString(), "\"\"");
    EXPECT_EQ(object.Find("job_id")->ToString(), "\"\"");
    EXPECT_EQ(object.Find("chunkStartTime")->ToString(), "0");
    EXPECT_EQ(object.Find("chunkEndTime")->ToString(), "0");
    EXPECT_EQ(object.Find("dataModule")->ToString(), "0");
    EXPECT_EQ(object.Find("stream_enabled")->ToString(), "\"\"");
}

TEST_F(JobContextText, TimesAreWrittenWithAll64Bits) {
    JobContext context;
    context.chunkStartTime = UINT64_MAX;
    context.chunkEndTime = 2147483648;

    const std::string text = context.ToString();

    EXPECT_NE(text.find("\"chunkStartTime\":18446744073709551615"), std::string::npos);
    EXPECT_NE(text.find("\"chunkEndTime\":2147483648"), std::string::npos);
}

TEST_F(JobContextText, TimesKeepAll64BitsThroughAnObject) {
    JobContext context;
    context.chunkStartTime = UINT64_MAX;
    context.chunkEndTime = UINT64_MAX - 1;
    Json object;
    context.ToObject(object);
    JobContext back;

    back.FromObject(object);

    EXPECT_EQ(back.chunkStartTime, UINT64_MAX);
    EXPECT_EQ(back.chunkEndTime, UINT64_MAX - 1);
}

TEST_F(JobContextText, TimeAbove2147483647CannotBeReadBack) {
    JobContext context;

    EXPECT_FALSE(context.FromString("{\"chunkStartTime\":2147483648}"));

    EXPECT_EQ(log.Texts('E'), std::vector<std::string>{"JobContext ::FromString(): stoi"});
}

TEST_F(JobContextText, EmptyTextIsRefusedSilently) {
    JobContext context;

    EXPECT_FALSE(context.FromString(""));

    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(JobContextText, BrokenTextIsRefusedWithOneError) {
    JobContext context;

    EXPECT_FALSE(context.FromString("{\"job_id\":"));

    EXPECT_EQ(log.Texts('E').size(), 1U);
    EXPECT_TRUE(log.Contains('E', "JobContext ::FromString(): Input"));
}

TEST_F(JobContextText, TextThatIsNoObjectIsRefused) {
    JobContext context;

    EXPECT_FALSE(context.FromString("[1]"));

    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"JobContext ::FromString(): Input json string error"});
}

TEST_F(JobContextText, UnknownKeysAreIgnored) {
    JobContext context;

    EXPECT_TRUE(context.FromString("{\"colour\":\"red\",\"job_id\":\"7\"}"));

    EXPECT_EQ(context.job_id, "7");
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(JobContextText, TextBehindTheFirstObjectIsIgnored) {
    JobContext context;

    EXPECT_TRUE(context.FromString("{\"job_id\":\"7\"}{\"job_id\":\"8\"}"));

    EXPECT_EQ(context.job_id, "7");
}

TEST_F(JobContextText, NullLeavesEveryFieldAlone) {
    JobContext context = FilledContext();

    EXPECT_TRUE(
        context.FromString("{\"job_id\":null,\"chunkStartTime\":null,\"dataModule\":null}"));

    EXPECT_EQ(context.job_id, "job-1");
    EXPECT_EQ(context.chunkStartTime, 2147483647U);
    EXPECT_EQ(context.dataModule, 5);
}

TEST_F(JobContextText, AbsentKeysLeaveEveryFieldAlone) {
    JobContext context = FilledContext();

    EXPECT_TRUE(context.FromString("{}"));

    EXPECT_EQ(context.ToString(), FilledContext().ToString());
}

TEST_F(JobContextText, WrongKindGivesZeroOrEmptyWithAnError) {
    JobContext context = FilledContext();

    EXPECT_TRUE(
        context.FromString("{\"job_id\":5,\"chunkStartTime\":\"late\",\"dataModule\":\"x\"}"));

    EXPECT_EQ(context.job_id, "");
    EXPECT_EQ(context.chunkStartTime, 0U);
    EXPECT_EQ(context.dataModule, 0);
    EXPECT_EQ(log.Count('E', "Invalid data type for string variable"), 1U);
    EXPECT_EQ(log.Count('E', "Invalid data type for int variable"), 2U);
}

TEST_F(JobContextText, BoolIsAcceptedWhereAnIntegerIsWanted) {
    JobContext context;

    EXPECT_TRUE(context.FromString("{\"dataModule\":true,\"chunkEndTime\":true}"));

    EXPECT_EQ(context.dataModule, 1);
    EXPECT_EQ(context.chunkEndTime, 1U);
}

TEST_F(JobContextText, ClassNames) {
    EXPECT_EQ(PlainRecord().GetClassName(), "BaseInfo");
    EXPECT_EQ(JobContext().GetClassName(), "JobContext");
}

}  // namespace analysis::rokt::message
