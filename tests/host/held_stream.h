// A stream that holds back the program that writes to it.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

namespace tiv::test {

// Holds one text at a time: a program that writes one waits in the system until the one before was
// taken out. The first waits for Next, too.
class HeldStream {
 public:
    HeldStream() {
        EXPECT_EQ(0, pipe2(ends_, O_CLOEXEC | O_DIRECT)) << "a pipe that keeps texts apart";
        EXPECT_EQ(getpagesize(), fcntl(ends_[1], F_SETPIPE_SZ, getpagesize()));
        EXPECT_EQ(1, write(ends_[1], "-", 1));
    }
    ~HeldStream() {
        CloseEnd();
        close(ends_[0]);
    }
    HeldStream(const HeldStream&) = delete;
    HeldStream& operator=(const HeldStream&) = delete;

    // What the program gets.
    [[nodiscard]] int End() const { return ends_[1]; }

    // Takes the oldest text out; empty when the program has ended and said no more.
    std::string Next() {
        CloseEnd();
        std::string text(4096, '\0');
        const ssize_t bytes = read(ends_[0], text.data(), text.size());
        text.resize(bytes > 0 ? static_cast<size_t>(bytes) : 0);
        return text;
    }
    // Takes texts out until one holds `word`; false when the program ends without it.
    bool TakeUntil(const std::string& word) {
        for (std::string text = Next(); !text.empty(); text = Next()) {
            if (text.find(word) != std::string::npos) {
                return true;
            }
        }
        return false;
    }
    // Takes all texts out until the program ends; the last one.
    std::string Last() {
        std::string last;
        for (std::string text = Next(); !text.empty(); text = Next()) {
            last = text;
        }
        return last;
    }

 private:
    void CloseEnd() {
        if (ends_[1] >= 0) {
            close(ends_[1]);
            ends_[1] = -1;
        }
    }

    int ends_[2] = {-1, -1};
};

}  // namespace tiv::test
