// A test's side of the control socket of a process double.
#include "support/fault_control.h"

#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <sstream>
#include <thread>

namespace tiv::test {

namespace {

constexpr std::chrono::milliseconds BETWEEN_QUESTIONS{5};

int Connect(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof(address.sun_path)) {
        return -1;
    }
    memcpy(address.sun_path, path.c_str(), path.size());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

std::string Exchange(int fd, const std::string& request) {
    size_t done = 0;
    while (done < request.size()) {
        const ssize_t sent = send(fd, request.data() + done, request.size() - done, MSG_NOSIGNAL);
        if (sent <= 0) {
            return {};
        }
        done += static_cast<size_t>(sent);
    }
    shutdown(fd, SHUT_WR);
    std::string answer;
    char piece[4096];
    ssize_t length = 0;
    while ((length = read(fd, piece, sizeof(piece))) > 0) {
        answer.append(piece, static_cast<size_t>(length));
    }
    return answer;
}

std::vector<std::string> SplitAt(const std::string& text, char end) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, end);) {
        parts.push_back(part);
    }
    return parts;
}

Call ReadCall(const std::string& line) {
    const std::vector<std::string> words = SplitAt(line, '\t');
    Call call;
    for (size_t i = 0; i < words.size(); ++i) {
        const size_t equals = words[i].find('=');
        if (i == 0) {
            call.function = words[i];
        } else if (i == 1) {
            call.thread = words[i];
        } else if (i == 2) {
            call.tid = strtol(words[i].c_str(), nullptr, 10);
        } else if (equals != std::string::npos) {
            Argument argument(words[i].substr(0, equals).c_str(),
                              words[i].substr(equals + 1).c_str());
            argument.value = strtoll(argument.text.c_str(), nullptr, 10);
            call.arguments.push_back(std::move(argument));
        }
    }
    return call;
}

}  // namespace

std::string FaultControl::Ask(const std::string& request, std::string& body) const {
    const int fd = Connect(path_);
    if (fd < 0) {
        return "error nobody answers at " + path_;
    }
    const std::string answer = Exchange(fd, request);
    close(fd);
    const size_t end = answer.find('\n');
    if (end == std::string::npos) {
        return "error no answer from " + path_;
    }
    body = answer.substr(end + 1);
    return answer.substr(0, end);
}

std::string FaultControl::ReplacePlan(const std::string& text) const {
    std::string body;
    const std::string answer = Ask("plan\n" + text, body);
    return answer == "ok" ? "" : answer;
}

std::string FaultControl::ClearCalls() const {
    std::string body;
    const std::string answer = Ask("clear\n", body);
    return answer == "ok" ? "" : answer;
}

std::vector<Call> FaultControl::Calls(const std::string& function) const {
    std::string body;
    std::vector<Call> calls;
    if (Ask("calls " + function + "\n", body) == "ok") {
        for (const std::string& line : SplitAt(body, '\n')) {
            calls.push_back(ReadCall(line));
        }
    }
    return calls;
}

bool FaultControl::WaitForCalls(const std::string& function, size_t count,
                                std::chrono::milliseconds limit) const {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (Calls(function).size() < count) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(BETWEEN_QUESTIONS);
    }
    return true;
}

}  // namespace tiv::test
