// Double of the resource manager: one result, and a count of the questions.
#include "support/fake_resource_manager.h"

#include "platform/resource_manager.h"
#include "support/before_every_test.h"

namespace tiv::test {

namespace {

[[maybe_unused]] const bool fresh = BeforeEveryTest([] {
    FakeResourceManager::Instance().result = 0;
    FakeResourceManager::Instance().calls = 0;
});

}  // namespace

FakeResourceManager& FakeResourceManager::Instance() {
    static FakeResourceManager manager;
    return manager;
}

}  // namespace tiv::test

int32_t IAMResMgrReady(void) {
    auto& manager = tiv::test::FakeResourceManager::Instance();
    ++manager.calls;
    return manager.result;
}
