// The driver's C interface with the visibility that its definitions need in this library.
//
// Everything here is compiled hidden; the functions declared in between are the exception.
#pragma once

#include <cerrno>
#include <exception>
#include <new>
#include <system_error>

#pragma GCC visibility push(default)
#include "platform/driver_api.h"
#pragma GCC visibility pop

namespace tiv::soft_driver {

// Sets errno and gives the result of a failed C function.
inline int32_t Fail(int error, int32_t result = -1) {
    errno = error;
    return result;
}

// Runs the body of a C function; no exception crosses the library's border.
template <class Body>
int32_t Guarded(Body&& body) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return Fail(ENOMEM);
    } catch (const std::system_error& error) {
        return Fail(error.code().value());
    } catch (const std::exception&) {
        return Fail(EIO);
    }
}

}  // namespace tiv::soft_driver
