// Exit codes of tivctl.
#pragma once

namespace tiv::host {

enum ExitCode : int {
    EXIT_COMPLETE = 0,       // the job ran and every byte of it arrived
    EXIT_LOCAL_ERROR = 1,    // something on this machine failed, such as writing the result
    EXIT_USAGE = 2,          // the command line asks for something that cannot be done
    EXIT_REFUSED = 3,        // no daemon answered, or it refused the job: nothing was collected
    EXIT_INCOMPLETE = 4,     // data was collected and kept, but not all of it arrived
    EXIT_INTERRUPTED = 130,  // Ctrl-C before the collection began, or a second one
};

}  // namespace tiv::host
