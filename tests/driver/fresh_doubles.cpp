// Puts fresh doubles in front of every test of this program, in whatever order the tests run.
#include "support/fresh_doubles.h"

#include <gtest/gtest.h>

#include <memory>

#include "config/json_parser.h"

namespace tiv::test {
namespace {

class FreshStart : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo&) override {
        Zelnarer::Parser::JsonParser::Instance().Uninit();
        const FreshDoubles doubles;
    }
};

bool Listen() {
    // The list owns its listeners.
    testing::UnitTest::GetInstance()->listeners().Append(std::make_unique<FreshStart>().release());
    return true;
}

[[maybe_unused]] const bool listening = Listen();

}  // namespace
}  // namespace tiv::test
