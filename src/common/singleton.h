// The base of every process-wide object.
#pragma once

namespace analysis::rokt::common::singleton {

// Gives T one instance for the life of the process. A class derives from Singleton<itself> and
// makes the base a friend when its constructor is private.
//
// The instance is built on first use and destroyed at exit, in the reverse order of first use: a
// singleton must not be touched by a thread that outlives `main`. The first use may come from any
// number of threads at once.
template <class T>
class Singleton {
 public:
    virtual ~Singleton() = default;
    Singleton(const Singleton&) = delete;
    Singleton& operator=(const Singleton&) = delete;

    static T& Instance() {
        static T instance;
        return instance;
    }

 protected:
    Singleton() = default;
};

}  // namespace analysis::rokt::common::singleton
