// What a program does in front of every test, for when its tests share a process.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <utility>

namespace tiv::test {

// Calls `reset` in front of every test, before its fixture is made. For an object with static
// storage, whose value says nothing:
//
//   [[maybe_unused]] const bool fresh = BeforeEveryTest([] { FakeMm::Instance().Reset(); });
inline bool BeforeEveryTest(std::function<void()> reset) {
    class Listener : public testing::EmptyTestEventListener {
     public:
        explicit Listener(std::function<void()> reset) : reset_(std::move(reset)) {}

     private:
        void OnTestStart(const testing::TestInfo&) override { reset_(); }

        const std::function<void()> reset_;
    };
    // The list owns its listeners.
    testing::UnitTest::GetInstance()->listeners().Append(
        std::make_unique<Listener>(std::move(reset)).release());
    return true;
}

}  // namespace tiv::test
