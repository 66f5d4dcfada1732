// Tests of the sample configuration's keys, defaults and reading rules.
#include "message/prof_params.h"

#include <map>

#include "message/prof_params_keys.h"
#include "support/recorded_log_test.h"

namespace analysis::rokt::message {

class ProfileParamsText : public tiv::test::RecordedLogTest {};

namespace {

using Texts = std::map<std::string, std::string>;

// The JSON text of each key.
Texts TextsOf(const ProfileParams& params) {
    Texts texts;
    Json object;
    params.ToObject(object);
    for (const auto& [key, value] : object.GetObject()) {
        texts[key] = value.ToString();
    }
    return texts;
}

Texts FreshTexts() {
    Texts texts;
    for (const KeyRow& row : KEYS) {
        texts[row.key] = row.fresh;
    }
    return texts;
}

// A value of the key's kind that no default has.
const char* OtherValue(const KeyRow& row) {
    return row.kind == TEXT ? "\"other value\"" : row.kind == INT ? "4711" : "true";
}

void ExpectUnkeyedDefaults(const ProfileParams& params) {
    EXPECT_EQ(params.extraText0 + params.extraText1 + params.extraText2 + params.extraText3, "");
    EXPECT_EQ(params.extraSwitch0, "off");
    EXPECT_EQ(params.extraSwitch1, "off");
    EXPECT_EQ(params.extraSwitch2, "off");
    EXPECT_EQ(params.extraSwitch3, "off");
    EXPECT_EQ(params.extraFormat, "csv");
    EXPECT_EQ(params.extraList, "communication,communication_matrix");
    EXPECT_EQ(params.extraId0, -1);
    EXPECT_EQ(params.extraId1, -1);
    EXPECT_TRUE(params.extraIds.empty());
}

// What the record holds after reading one key alone.
Texts TextsAfterReading(const std::string& key, const std::string& value) {
    ProfileParams params;
    EXPECT_TRUE(params.FromString("{\"" + key + "\":" + value + "}"));
    return TextsOf(params);
}

}  // namespace

TEST_F(ProfileParamsText, EveryKeyIsWrittenWithItsDefault) {
    EXPECT_EQ(TextsOf(ProfileParams()), FreshTexts());
}

TEST_F(ProfileParamsText, EveryKeyIsReadIntoItsOwnFieldOnly) {
    for (const KeyRow& row : KEYS) {
        Texts expected = FreshTexts();
        expected[row.key] = OtherValue(row);

        EXPECT_EQ(TextsAfterReading(row.key, OtherValue(row)), expected) << row.key;
    }
}

TEST_F(ProfileParamsText, NullLeavesEveryKeyAtItsDefault) {
    for (const KeyRow& row : KEYS) {
        EXPECT_EQ(TextsAfterReading(row.key, "null"), FreshTexts()) << row.key;
    }
}

TEST_F(ProfileParamsText, ExactlyTheSharedKeysAreWritten) {
    Json object;
    ProfileParams().ToObject(object);

    EXPECT_EQ(object.GetObject().size(), 110U);
}

TEST_F(ProfileParamsText, EmptyObjectLeavesAFreshRecord) {
    ProfileParams params;

    EXPECT_TRUE(params.FromString("{}"));

    EXPECT_EQ(params.ToString(), ProfileParams().ToString());
    ExpectUnkeyedDefaults(params);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ProfileParamsText, EmptyTextIsRefused) { EXPECT_FALSE(ProfileParams().FromString("")); }

TEST_F(ProfileParamsText, BrokenTextNamesTheClassInTheError) {
    EXPECT_FALSE(ProfileParams().FromString("{\"job_id\" \"1\""));

    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"ProfileParams ::FromString(): Input json string error"});
}

TEST_F(ProfileParamsText, NullLeavesAnIntervalAt100) {
    ProfileParams params;

    EXPECT_TRUE(params.FromString("{\"sys_sampling_interval\":null}"));

    EXPECT_EQ(params.sys_sampling_interval, 100);
}

TEST_F(ProfileParamsText, IntervalGivenAsTextBecomesZero) {
    ProfileParams params;

    EXPECT_TRUE(params.FromString("{\"sys_sampling_interval\":\"5\"}"));

    EXPECT_EQ(params.sys_sampling_interval, 0);
    EXPECT_EQ(log.Texts('E'), std::vector<std::string>{"Invalid data type for int variable"});
}

TEST_F(ProfileParamsText, WrongKindsDoNotFailTheOthers) {
    ProfileParams params;

    EXPECT_TRUE(params.FromString("{\"cpu_profiling\":7,\"isCancel\":\"on\",\"job_id\":\"4\"}"));

    EXPECT_EQ(params.cpu_profiling, "");
    EXPECT_FALSE(params.isCancel);
    EXPECT_EQ(params.job_id, "4");
    EXPECT_TRUE(log.Has('E', "Invalid data type for string variable"));
    EXPECT_TRUE(log.Has('E', "Invalid data type for boolean variable"));
}

TEST_F(ProfileParamsText, ObjectFormKeepsTheRecord) {
    ProfileParams params;
    params.job_id = "4";
    params.llc_interval = 7;
    params.hostProfiling = true;
    Json object;
    params.ToObject(object);
    ProfileParams back;

    back.FromObject(object);

    EXPECT_EQ(back.ToString(), params.ToString());
    EXPECT_TRUE(back.hostProfiling);
    ExpectUnkeyedDefaults(back);
}

TEST_F(ProfileParamsText, UnkeyedMembersHaveTheirDefaults) {
    ExpectUnkeyedDefaults(ProfileParams());
}

TEST_F(ProfileParamsText, UnkeyedMembersAreNeitherWrittenNorRead) {
    ProfileParams params;
    params.extraFormat = "json";
    params.extraId0 = 9;
    params.extraIds.insert(3);

    EXPECT_EQ(params.ToString(), ProfileParams().ToString());
    EXPECT_TRUE(params.FromString("{\"extraFormat\":\"xml\",\"extraId0\":1,\"extraIds\":[]}"));

    EXPECT_EQ(params.extraFormat, "json");
    EXPECT_EQ(params.extraId0, 9);
    EXPECT_EQ(params.extraIds.size(), 1U);
}

TEST_F(ProfileParamsText, SwitchKeepsItsExactText) {
    ProfileParams params;

    EXPECT_TRUE(params.FromString("{\"sys_profiling\":\"ON\"}"));

    EXPECT_NE(params.sys_profiling, "on");
}

TEST_F(ProfileParamsText, ClassName) { EXPECT_EQ(ProfileParams().GetClassName(), "ProfileParams"); }

}  // namespace analysis::rokt::message
