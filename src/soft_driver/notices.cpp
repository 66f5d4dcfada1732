// One line to standard error per notice.
#include "soft_driver/notices.h"

#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace tiv::soft_driver {
namespace {

constexpr size_t LINE_BYTES = 1000;

__attribute__((format(printf, 2, 0))) void WriteLine(const char* kind, const char* format,
                                                     va_list arguments) {
    const int saved = errno;
    std::array<char, LINE_BYTES + 1> line{};
    const int head = snprintf(line.data(), LINE_BYTES, "tiv_driver: %s: ", kind);
    const auto start = static_cast<size_t>(std::max(head, 0));
    const int tail = vsnprintf(line.data() + start, LINE_BYTES - start, format, arguments);
    const size_t end = std::min(start + static_cast<size_t>(std::max(tail, 0)), LINE_BYTES - 1);
    line[end] = '\n';
    const ssize_t written = write(STDERR_FILENO, line.data(), end + 1);
    (void)written;  // nobody is left to tell
    errno = saved;
}

}  // namespace

void Warn(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    WriteLine("warning", format, arguments);
    va_end(arguments);
}

void Inform(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    WriteLine("info", format, arguments);
    va_end(arguments);
}

std::string ErrorText(int error) {
    std::array<char, 128> buffer{};
    return strerror_r(error, buffer.data(), buffer.size());
}

}  // namespace tiv::soft_driver
