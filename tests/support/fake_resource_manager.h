// Double of the resource manager: one result, and a count of the questions.
#pragma once

#include <atomic>
#include <cstdint>

namespace tiv::test {

struct FakeResourceManager {
    static FakeResourceManager& Instance();

    std::atomic<int32_t> result{0};
    std::atomic<int> calls{0};
};

}  // namespace tiv::test
