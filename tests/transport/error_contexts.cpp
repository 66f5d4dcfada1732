// Stands in for the error manager's hook, which does nothing.
#include "transport/error_contexts.h"

#include "common/error_manager.h"
#include "platform/mutex.h"
#include "support/fault_table.h"

namespace {

using Analysis::Rokt::ZelnarErrMgr::ErrorContext;
using Analysis::Rokt::ZelnarErrMgr::ZelnarErrorManager;

tiv::Mutex mutex;
std::vector<std::string> threads GUARDED_BY(mutex);

}  // namespace

// A member is a function whose first argument is its object.
#define MANAGER "_ZN8Analysis4Rokt12ZelnarErrMgr18ZelnarErrorManager"
void SetErrorContext(ZelnarErrorManager* self,
                     const ErrorContext& context) asm("__wrap_" MANAGER
                                                      "15SetErrorContextERKNS1_12ErrorContextE");

void SetErrorContext(ZelnarErrorManager* /*self*/, const ErrorContext& /*context*/) {
    tiv::MutexLock lock(mutex);
    threads.push_back(tiv::test::CurrentThreadName());
}

namespace tiv::test {

std::vector<std::string> ThreadsWithAContext() {
    MutexLock lock(mutex);
    return threads;
}

void ForgetThreads() {
    MutexLock lock(mutex);
    threads.clear();
}

}  // namespace tiv::test
