// The faults that a double applies to calls, and the record of the calls that it saw.
#include "support/fault_table.h"

#include <sys/prctl.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <utility>

namespace tiv::test {

namespace {

constexpr std::chrono::seconds WAIT_LIMIT{10};

bool Matches(const Fault& fault, const Call& call) {
    return fault.function == call.function &&
           std::all_of(fault.match.begin(), fault.match.end(), [&call](const auto& wanted) {
               return call.Text(wanted.first) == wanted.second;
           });
}

void Delay(uint32_t milliSeconds) {
    timespec rest = {static_cast<time_t>(milliSeconds / 1000),
                     static_cast<long>(milliSeconds % 1000) * 1000000};
    while (nanosleep(&rest, &rest) != 0 && errno == EINTR) {
    }
}

}  // namespace

std::string CurrentThreadName() {
    char name[16] = {};
    return prctl(PR_GET_NAME, name) == 0 ? std::string(name) : std::string();
}

int64_t Call::Value(const std::string& name) const {
    for (const Argument& argument : arguments) {
        if (argument.name == name) {
            return argument.value;
        }
    }
    return 0;
}

std::string Call::Text(const std::string& name) const {
    for (const Argument& argument : arguments) {
        if (argument.name == name) {
            return argument.text;
        }
    }
    return {};
}

void FaultTable::Add(Fault fault) {
    MutexLock lock(mutex_);
    faults_.push_back(std::move(fault));
}

void FaultTable::ClearFaults() {
    MutexLock lock(mutex_);
    faults_.clear();
}

void FaultTable::Replace(std::vector<Fault> faults) {
    MutexLock lock(mutex_);
    faults_ = std::move(faults);
}

void FaultTable::ClearCalls() {
    MutexLock lock(mutex_);
    calls_.clear();
}

void FaultTable::Return(const std::string& function, int64_t result, int count, int skip) {
    Fault fault;
    fault.function = function;
    fault.result = result;
    fault.count = count;
    fault.skip = skip;
    Add(std::move(fault));
}

void FaultTable::Fail(const std::string& function, int64_t result, int error, int count, int skip) {
    Fault fault;
    fault.function = function;
    fault.result = result;
    fault.error = error;
    fault.count = count;
    fault.skip = skip;
    Add(std::move(fault));
}

Fault FaultTable::Match(const Call& call) {
    for (Fault& fault : faults_) {
        if (fault.count == 0 || !Matches(fault, call)) {
            continue;
        }
        if (fault.skip > 0) {
            --fault.skip;
            continue;
        }
        if (fault.count > 0) {
            --fault.count;
        }
        return fault;
    }
    return {};
}

Fault FaultTable::Enter(const char* function, Arguments arguments) {
    const int error = errno;
    static std::atomic<uint64_t> order{0};
    Call call{function, std::move(arguments), CurrentThreadName(), syscall(SYS_gettid), ++order};
    std::function<void(const Call&)> listener;
    Fault fault;
    {
        MutexLock lock(mutex_);
        calls_.push_back(call);
        fault = Match(call);
        listener = listener_;
        entered_.NotifyAll();
    }
    if (listener) {
        listener(call);
    }
    if (fault.delayMs > 0) {
        Delay(fault.delayMs);
    }
    errno = error;
    return fault;
}

std::vector<Call> FaultTable::Calls() const {
    MutexLock lock(mutex_);
    return calls_;
}

std::vector<Call> FaultTable::Calls(const std::string& function) const {
    MutexLock lock(mutex_);
    std::vector<Call> found;
    std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(found),
                 [&function](const Call& call) { return call.function == function; });
    return found;
}

size_t FaultTable::Count(const std::string& function) const { return Calls(function).size(); }

bool FaultTable::WaitForCalls(const std::string& function, size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + WAIT_LIMIT;
    MutexLock lock(mutex_);
    const auto seen = [&function](const std::vector<Call>& calls) {
        return static_cast<size_t>(
            std::count_if(calls.begin(), calls.end(),
                          [&function](const Call& call) { return call.function == function; }));
    };
    while (seen(calls_) < count) {
        if (!entered_.WaitUntil(mutex_, deadline)) {
            return seen(calls_) >= count;
        }
    }
    return true;
}

void FaultTable::OnCall(std::function<void(const Call&)> listener) {
    MutexLock lock(mutex_);
    listener_ = std::move(listener);
}

}  // namespace tiv::test
