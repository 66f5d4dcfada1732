// The abstract thread of the profiling side.
#pragma once

#include <atomic>
#include <string>

#include "common/error_manager.h"
#include "common/thread_names.h"
#include "platform/mm_api.h"

namespace analysis::rokt::common::thread {

using ErrorContext = Analysis::Rokt::ZelnarErrMgr::ErrorContext;

// A thread with a quit flag that its body polls.
//
//   new --Start--> running --Stop--> stopped --Start--> running ...
//
// There is no wake-up: a subclass whose body blocks (on a queue, in a driver call) ends that block
// itself before it calls Stop. A subclass also stops in its own destructor: when the base
// destructor joins, the subclass's members and its Run are gone already.
//
// Start and Stop belong to one controlling path; IsQuit may be asked from any thread.
class Thread {
 public:
    Thread() = default;
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    // Starts the body on a new thread, which inherits the process-wide error context. 0, also when
    // it runs already; -1 when the system refuses a thread.
    virtual int Start();

    // Sets the quit flag, whatever the state, and waits for the body to return. 0, also when
    // nothing runs; -1 when the join fails, and then no later call joins again. Never on the thread
    // itself.
    virtual int Stop();

    // Sets the quit flag and nothing else.
    virtual Thread* SetQuit();

    bool IsQuit() const { return quit.load(); }

    // True from a successful Start to the matching Stop. On the controlling path.
    bool IsStarted() const { return started.load(); }

    // To be called before Start. The system shows 15 bytes of the name.
    void SetThreadName(const std::string& name) { threadName = name; }
    const std::string& GetThreadName() const { return threadName; }

 protected:
    // The body. Its first action is to hand `context` to the error manager.
    virtual void Run(const ErrorContext& context) = 0;

 private:
    static void* ThreadEntry(void* object);

    mmThread tid = 0;                  // 0 while there is no thread
    std::atomic<bool> quit{false};     // set by Stop, cleared by Start
    std::atomic<bool> started{false};  // from a successful Start to the matching Stop
    std::string threadName;
    ErrorContext context;  // written before the thread is created
};

}  // namespace analysis::rokt::common::thread
