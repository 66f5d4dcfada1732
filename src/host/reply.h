// The answer to one request of the host.
#pragma once

#include <string>

namespace tiv::host {

struct Reply {
    enum class Outcome {
        ACCEPTED,
        REFUSED,    // the device answered that it will not
        CLOSED,     // the session ended before an answer came
        TIMED_OUT,  // no answer in time
        GIVEN_UP,   // the caller did not want to wait any longer
    };
    Outcome outcome = Outcome::TIMED_OUT;
    std::string message;  // for people: the device's own words, or what their absence means

    [[nodiscard]] bool Accepted() const { return outcome == Outcome::ACCEPTED; }
};

}  // namespace tiv::host
