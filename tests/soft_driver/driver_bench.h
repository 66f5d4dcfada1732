// What the tests of the software driver share: a runtime directory of their own, and both ends of
// a link in one process.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/driver_api.h"
#include "support/temp_dir.h"

namespace tiv::test {

constexpr int32_t SERVICE = 4;

// Sets the environment before the driver's first call; every test is a process of its own.
class DriverBench : public ::testing::Test {
 protected:
    DriverBench() { setenv("TIV_RUNTIME_DIR", Runtime().c_str(), 1); }

    std::string Runtime() const { return directory_.Path("run"); }
    std::string SocketOf(int device) const {
        return Runtime() + "/hdc_" + std::to_string(device) + "_4.sock";
    }
    // Ends a test whose process has tested another configuration: the driver reads one.
    void Configure(const std::string& json) {
        static const std::string first = json;
        if (json != first) {
            throw std::logic_error("every test of the driver wants a process of its own");
        }
        setenv("TIV_DRIVER_CONFIG", directory_.Write("driver.json", json).c_str(), 1);
    }

    TempDir directory_;
};

// A server of device 0, a client, and a session between them.
class LinkBench : public DriverBench {
 protected:
    void Open(int32_t device = 0) {
        ASSERT_EQ(0, drvHdcServerCreate(device, SERVICE, &server_));
        ASSERT_EQ(0, drvHdcClientCreate(&client_, 96, SERVICE, 0));
        ASSERT_EQ(0, drvHdcSessionConnect(0, device, client_, &host_));
        ASSERT_EQ(0, drvHdcSessionAccept(server_, &card_));
    }

    HDC_SERVER server_ = nullptr;
    HDC_CLIENT client_ = nullptr;
    HDC_SESSION host_ = nullptr;  // the connecting end
    HDC_SESSION card_ = nullptr;  // the accepted end
};

// Sends one message; the driver's result.
inline int32_t SendText(HDC_SESSION session, std::string text, uint64_t flag = HDC_FLAG_WAIT) {
    HDC_MSG message = nullptr;
    int32_t result = drvHdcAllocMsg(session, &message, 1);
    if (result != 0) {
        return result;
    }
    result = drvHdcAddMsgBuffer(message, text.data(), static_cast<int32_t>(text.size()));
    const int32_t sent = result == 0 ? halHdcSend(session, message, flag, 0) : result;
    const int error = errno;
    (void)drvHdcFreeMsg(message);
    errno = error;
    return sent;
}

struct Received {
    int32_t result = -1;
    std::string text;
};

inline bool operator==(const Received& left, const Received& right) {
    return left.result == right.result && left.text == right.text;
}
inline std::ostream& operator<<(std::ostream& out, const Received& value) {
    return out << value.result << " with " << value.text.size() << " bytes";
}

// Receives one message and copies its bytes.
inline Received ReceiveText(HDC_SESSION session, uint64_t flag = HDC_FLAG_WAIT) {
    Received received;
    HDC_MSG message = nullptr;
    if (drvHdcAllocMsg(session, &message, 1) != 0) {
        return received;
    }
    int32_t count = -1;
    received.result = halHdcRecv(session, message, 0, flag, &count, 0);
    char* data = nullptr;
    int32_t bytes = 0;
    if (received.result == 0 && count == 1 && drvHdcGetMsgBuffer(message, 0, &data, &bytes) == 0) {
        received.text.assign(data, static_cast<size_t>(bytes));
    }
    (void)drvHdcFreeMsg(message);
    return received;
}

// A client that knows nothing of the driver: a socket connected to a path. -1 when refused.
inline int RawConnect(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

// The wire form of a message.
inline std::string Frame(const std::string& text) {
    const auto length = static_cast<uint32_t>(text.size());
    return std::string(reinterpret_cast<const char*>(&length), sizeof(length)) + text;
}

inline void RawSend(int fd, const std::string& bytes) {
    ASSERT_EQ(static_cast<ssize_t>(bytes.size()),
              send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL));
}

// Runs a body in a child process; its exit status.
template <class Body>
int ExitStatusOf(Body&& body) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(body());
    }
    int status = -1;
    (void)waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A thread whose blocking can be waited for.
class Worker {
 public:
    template <class Body>
    explicit Worker(Body body)
        : thread_([this, body] {
              tid_ = static_cast<int>(syscall(SYS_gettid));
              body();
          }) {}
    ~Worker() { Join(); }

    // Returns when the kernel shows the thread asleep.
    void WaitUntilBlocked() const {
        while (tid_ == 0) {
            std::this_thread::yield();
        }
        char state = 'R';
        while (state != 'S') {
            std::ifstream stat("/proc/self/task/" + std::to_string(tid_) + "/stat");
            std::string line;
            std::getline(stat, line);
            state = line.at(line.rfind(')') + 2);
            std::this_thread::yield();
        }
    }
    void Join() {
        if (thread_.joinable()) {
            thread_.join();
        }
    }

 private:
    std::atomic<int> tid_{0};
    std::thread thread_;
};

inline size_t OpenDescriptors() {
    size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        count += entry.path().empty() ? 0 : 1;
    }
    return count;
}

}  // namespace tiv::test
