// The configuration that a test read is not there in the next one.
#include "config/json_parser.h"
#include "support/before_every_test.h"

namespace tiv::test {
namespace {

[[maybe_unused]] const bool fresh =
    BeforeEveryTest([] { Zelnarer::Parser::JsonParser::Instance().Uninit(); });

}  // namespace
}  // namespace tiv::test
