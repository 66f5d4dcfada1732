// Double of the driver, the OS abstraction and the start functions for a whole process.
#include "support/process_double.h"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include "platform/log_api.h"
#include "platform/resource_manager.h"
#include "support/fault_plan.h"

extern "C" {

decltype(::IAMResMgrReady) TivPlatform_IAMResMgrReady;
decltype(::dlog_init) TivPlatform_dlog_init;
decltype(::DlogSetAttr) TivPlatform_DlogSetAttr;

}  // extern "C"

namespace tiv::test {

namespace {

constexpr int BAD_START = 97;
constexpr char PLAN[] = "plan\n";
constexpr char CALLS[] = "calls ";
constexpr char CLEAR[] = "clear\n";

// A word of the record: tabs and line ends part words and calls.
std::string Word(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\t' || c == '\n'; }, '?');
    return text;
}

std::string Line(const Call& call) {
    std::string line = call.function + "\t" + Word(call.thread) + "\t" + std::to_string(call.tid);
    for (const Argument& argument : call.arguments) {
        line += "\t" + argument.name + "=" + Word(argument.text);
    }
    return line + "\n";
}

bool StartsWith(const std::string& text, const char* start) {
    return text.compare(0, strlen(start), start) == 0;
}

std::string ReadAll(int fd) {
    std::string text;
    char piece[4096];
    ssize_t length = 0;
    while ((length = read(fd, piece, sizeof(piece))) > 0) {
        text.append(piece, static_cast<size_t>(length));
    }
    return text;
}

void WriteAll(int fd, const std::string& text) {
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t sent = send(fd, text.data() + done, text.size() - done, MSG_NOSIGNAL);
        if (sent <= 0) {
            return;
        }
        done += static_cast<size_t>(sent);
    }
}

void EndWhenWrong(const std::string& error) {
    if (!error.empty()) {
        fprintf(stderr, "driver double: %s\n", error.c_str());
        _exit(BAD_START);
    }
}

const bool switchedOn = [] {
    const char* plan = getenv("TIV_FAULT_PLAN");
    const char* socketPath = getenv("TIV_FAULT_SOCKET");
    if (plan != nullptr) {
        EndWhenWrong(ProcessDouble::Instance().LoadPlan(plan));
    }
    if (socketPath != nullptr) {
        EndWhenWrong(ProcessDouble::Instance().Listen(socketPath));
    }
    return plan != nullptr || socketPath != nullptr;
}();

}  // namespace

ProcessDouble& ProcessDouble::Instance() {
    static ProcessDouble& instance = *std::unique_ptr<ProcessDouble>(new ProcessDouble).release();
    return instance;
}

ProcessDouble::ProcessDouble() {
    driver.ForwardToLibrary();
    mm.ForwardToPlatform();
}

DriverFunctions& DriverBehindTheInterface() { return ProcessDouble::Instance().driver; }

MmFunctions& MmBehindTheInterface() { return ProcessDouble::Instance().mm; }

std::string ProcessDouble::LoadPlan(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        return "cannot read the fault plan " + file;
    }
    return ReplacePlan({std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()});
}

std::string ProcessDouble::ReplacePlan(const std::string& text) {
    std::vector<Fault> faults;
    const std::string error = ParseFaultPlan(text, faults);
    if (error.empty()) {
        driver.calls.Replace(faults);
        mm.calls.Replace(faults);
        start.Replace(faults);
    }
    return error;
}

std::vector<Call> ProcessDouble::Calls(const std::string& function) const {
    std::vector<Call> all;
    for (const FaultTable* table : {&driver.calls, &mm.calls, &start}) {
        const std::vector<Call> some = function.empty() ? table->Calls() : table->Calls(function);
        all.insert(all.end(), some.begin(), some.end());
    }
    std::sort(all.begin(), all.end(),
              [](const Call& left, const Call& right) { return left.order < right.order; });
    return all;
}

void ProcessDouble::ClearCalls() {
    driver.calls.ClearCalls();
    mm.calls.ClearCalls();
    start.ClearCalls();
}

std::string ProcessDouble::Answer(const std::string& request) {
    if (StartsWith(request, PLAN)) {
        const std::string error = ReplacePlan(request.substr(strlen(PLAN)));
        return error.empty() ? "ok\n" : "error " + error + "\n";
    }
    if (StartsWith(request, CALLS)) {
        std::string answer = "ok\n";
        const std::string function = request.substr(strlen(CALLS));
        for (const Call& call : Calls(function.substr(0, function.find('\n')))) {
            answer += Line(call);
        }
        return answer;
    }
    if (request == CLEAR) {
        ClearCalls();
        return "ok\n";
    }
    return "error no such request\n";
}

void ProcessDouble::Serve(int listener) {
    pthread_setname_np(pthread_self(), "fault_control");
    for (;;) {
        const int peer = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (peer < 0) {
            continue;
        }
        WriteAll(peer, Answer(ReadAll(peer)));
        close(peer);
    }
}

std::string ProcessDouble::Listen(const std::string& socketPath) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof(address.sun_path)) {
        return "the path of the control socket is too long: " + socketPath;
    }
    memcpy(address.sun_path, socketPath.c_str(), socketPath.size());
    unlink(socketPath.c_str());
    const int listener = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0 ||
        bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        listen(listener, 8) != 0) {
        return "cannot listen on the control socket " + socketPath;
    }
    std::thread([this, listener] { Serve(listener); }).detach();
    return {};
}

}  // namespace tiv::test

int32_t IAMResMgrReady(void) {
    return tiv::test::Intercept(tiv::test::ProcessDouble::Instance().start, __func__, {},
                                [] { return TivPlatform_IAMResMgrReady(); });
}

int32_t dlog_init(void) {
    return tiv::test::Intercept(tiv::test::ProcessDouble::Instance().start, __func__, {},
                                [] { return TivPlatform_dlog_init(); });
}

int32_t DlogSetAttr(struct DlogAttr attr) {
    return tiv::test::Intercept(tiv::test::ProcessDouble::Instance().start, __func__,
                                {{"type", attr.type}, {"pid", attr.pid}, {"device", attr.devId}},
                                [&attr] { return TivPlatform_DlogSetAttr(attr); });
}
