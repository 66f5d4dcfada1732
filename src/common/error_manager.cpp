// The error manager's hook for the context of a thread.
#include "common/error_manager.h"

namespace Analysis::Rokt::ZelnarErrMgr {

void ZelnarErrorManager::SetErrorContext(const ErrorContext& /*threadContext*/) {}

}  // namespace Analysis::Rokt::ZelnarErrMgr
