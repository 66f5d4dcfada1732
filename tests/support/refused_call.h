// Refusals of the system and of libraries that a machine rarely gives. The linker sends the calls
// of a test program through doubles that ask here.
#pragma once

namespace tiv::test {

// While it lives, `count` calls of the function fail with `error` after `skip` calls went through.
// The functions are those that the test program wraps. One at a time.
class RefusedCall {
 public:
    explicit RefusedCall(const char* function, int error, int count = 1, int skip = 0);
    ~RefusedCall();
    RefusedCall(const RefusedCall&) = delete;
    RefusedCall& operator=(const RefusedCall&) = delete;

    // Calls that have failed so far.
    static int Count();

    // Waits until a call has failed; false when none does within ten seconds.
    static bool WaitForOne();
};

// For the doubles: true when this call is to fail; errno is set then.
bool Refuses(const char* function);

}  // namespace tiv::test

// Defines the double of a C function that fails with the result `failure` when it is refused.
#define TIV_REFUSABLE(function, result, failure, parameters, arguments)                 \
    result __real_##function parameters;                                                \
    result __wrap_##function parameters;                                                \
    result __wrap_##function parameters {                                               \
        return tiv::test::Refuses(#function) ? (failure) : __real_##function arguments; \
    }
