// The faults that a double applies to calls, and the record of the calls that it saw.
#pragma once

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "platform/mutex.h"

namespace tiv::test {

// One argument of a recorded call: a number, or a text.
struct Argument {
    Argument(const char* argumentName, int64_t number)
        : name(argumentName), value(number), text(std::to_string(number)) {}
    Argument(const char* argumentName, const char* words)
        : name(argumentName), text(words == nullptr ? "" : words) {}

    std::string name;
    int64_t value = 0;
    std::string text;  // of a number: its decimal form
};
using Arguments = std::vector<Argument>;

struct Call {
    std::string function;
    Arguments arguments;
    std::string thread;  // name of the calling thread
    long tid = 0;
    uint64_t order = 0;  // rises from call to call of the whole process

    // The argument `name`; 0 and "" when the call has none of that name.
    int64_t Value(const std::string& name) const;
    std::string Text(const std::string& name) const;
};

// What is to happen to some calls of one function. `match` holds argument names and the texts they
// must have; of the matching calls `skip` pass first, then `count` get the fault (-1: all further).
struct Fault {
    std::string function;
    std::map<std::string, std::string> match;
    int skip = 0;
    int count = 1;
    std::optional<int64_t> result;
    std::optional<int> error;    // errno after the call
    uint32_t delayMs = 0;        // before the call
    std::optional<int64_t> out;  // into the out-parameter; the result is 0 unless given
    bool null = false;           // a null handle in the out-parameter; the result is 0 unless given

    // True when the function behind the double isn't reached.
    bool Replaces() const { return result.has_value() || out.has_value() || null; }
};

// Thread-safe. The first fault that matches a call wins.
class FaultTable {
 public:
    void Add(Fault fault) EXCLUDES(mutex_);
    // Drops the faults and keeps the record.
    void ClearFaults() EXCLUDES(mutex_);
    void Replace(std::vector<Fault> faults) EXCLUDES(mutex_);
    void ClearCalls() EXCLUDES(mutex_);

    // "Give this result to the next `count` calls of `function`, after `skip` calls."
    void Return(const std::string& function, int64_t result, int count = 1, int skip = 0);
    // The same with errno.
    void Fail(const std::string& function, int64_t result, int error, int count = 1, int skip = 0);

    // Records the call and gives the fault that applies to it, its delay being over already.
    Fault Enter(const char* function, Arguments arguments) EXCLUDES(mutex_);

    std::vector<Call> Calls() const EXCLUDES(mutex_);
    std::vector<Call> Calls(const std::string& function) const EXCLUDES(mutex_);
    size_t Count(const std::string& function) const EXCLUDES(mutex_);
    // False when `count` calls have not been entered within ten seconds.
    bool WaitForCalls(const std::string& function, size_t count) EXCLUDES(mutex_);
    // Told of every call as it is entered; without a lock held.
    void OnCall(std::function<void(const Call&)> listener) EXCLUDES(mutex_);

 private:
    Fault Match(const Call& call) REQUIRES(mutex_);

    mutable Mutex mutex_;
    CondVar entered_;
    std::vector<Fault> faults_ GUARDED_BY(mutex_);
    std::vector<Call> calls_ GUARDED_BY(mutex_);
    std::function<void(const Call&)> listener_ GUARDED_BY(mutex_);
};

// Name of the calling thread as the system knows it.
std::string CurrentThreadName();

inline void SetErrorOf(const Fault& fault) {
    if (fault.error.has_value()) {
        errno = *fault.error;
    }
}

// Runs `real` unless a fault stands in its place.
template <typename Real>
auto Intercept(FaultTable& table, const char* function, Arguments arguments, Real real)
    -> decltype(real()) {
    const Fault fault = table.Enter(function, std::move(arguments));
    if (fault.result.has_value()) {
        SetErrorOf(fault);
        return static_cast<decltype(real())>(*fault.result);
    }
    return real();
}

template <typename T>
void WriteOut(T* out, const Fault& fault) {
    if constexpr (std::is_pointer_v<T>) {
        if (out != nullptr && fault.null) {
            *out = nullptr;
        }
    } else {
        if (out != nullptr && fault.out.has_value()) {
            *out = static_cast<T>(*fault.out);
        }
    }
}

// The same for a function with an out-parameter.
template <typename T, typename Real>
int32_t InterceptOut(FaultTable& table, const char* function, Arguments arguments, T* out,
                     Real real) {
    const Fault fault = table.Enter(function, std::move(arguments));
    if (!fault.Replaces()) {
        return real();
    }
    WriteOut(out, fault);
    SetErrorOf(fault);
    return static_cast<int32_t>(fault.result.value_or(0));
}

}  // namespace tiv::test
