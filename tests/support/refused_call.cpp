// Which calls are refused.
#include "support/refused_call.h"

#include <cerrno>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>

namespace tiv::test {

namespace {

std::mutex mutex;
std::string refused;
int error = 0;
int toPass = 0;
int toRefuse = 0;
int refusals = 0;

}  // namespace

RefusedCall::RefusedCall(const char* function, int withError, int count, int skip) {
    const std::lock_guard<std::mutex> lock(mutex);
    refused = function;
    error = withError;
    toRefuse = count;
    toPass = skip;
    refusals = 0;
}

RefusedCall::~RefusedCall() {
    const std::lock_guard<std::mutex> lock(mutex);
    refused.clear();
}

int RefusedCall::Count() {
    const std::lock_guard<std::mutex> lock(mutex);
    return refusals;
}

bool RefusedCall::WaitForOne() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (Count() == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    return Count() > 0;
}

bool Refuses(const char* function) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (refused != function || toRefuse == 0 || toPass-- > 0) {
        return false;
    }
    --toRefuse;
    ++refusals;
    errno = error;
    return true;
}

}  // namespace tiv::test
