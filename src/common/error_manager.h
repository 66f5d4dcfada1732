// The error context that a thread inherits from the one that started it, and its manager.
#pragma once

#include <cstdint>
#include <string>

#include "common/singleton.h"

namespace Analysis::Rokt::ZelnarErrMgr {

// What reports of a thread carry along. Empty as long as nobody fills it.
struct ErrorContext {
    uint64_t id = 0;
    std::string origin;
    std::string scope;
    std::string detail;
};

// Holds the one process-wide error context.
//
// Every thread body hands the context that it was started with to SetErrorContext first. The logger
// takes no context, so that the operation does nothing; thread code stays the same when one does.
// Read only, hence safe from any thread.
class ZelnarErrorManager : public analysis::rokt::common::singleton::Singleton<ZelnarErrorManager> {
 public:
    const ErrorContext& GetErrorContext() const { return context; }
    void SetErrorContext(const ErrorContext& threadContext);

 private:
    const ErrorContext context{};
};

}  // namespace Analysis::Rokt::ZelnarErrMgr
