// A file that appears under its name only when it is whole.
#pragma once

#include <string>
#include <string_view>

namespace tiv::host {

// Collects what is written in a buffer and writes it to <path>.new; Commit gives the file its name.
// The first failure is kept, everything behind it does nothing. One thread.
class OutputFile {
 public:
    explicit OutputFile(std::string path) : path_(std::move(path)), temporary_(path_ + ".new") {}
    // Removes the file under its temporary name unless it was committed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // Makes the file, or empties the one that an earlier run has left under the temporary name.
    [[nodiscard]] bool Open();
    void Write(std::string_view bytes) {
        buffer_.append(bytes);
        if (buffer_.size() >= BUFFER_BYTES) {
            Flush();
        }
    }
    // Writes what is left; a file of the same name is replaced.
    [[nodiscard]] bool Commit();
    // Gives every byte so far to `take`, which gives back false to stop. The file is not committed.
    template <class Take>
    [[nodiscard]] bool ReadBack(Take take);

    // Why something failed, with the name of the file; empty while nothing did.
    [[nodiscard]] const std::string& Error() const { return error_; }
    [[nodiscard]] const std::string& Path() const { return path_; }

 private:
    static constexpr size_t BUFFER_BYTES = 256 << 10;

    void Flush();
    void Fail(const char* what, int reason);
    long ReadAt(char* room, size_t bytes, size_t offset);

    const std::string path_;
    const std::string temporary_;
    int fd_ = -1;
    bool isMade_ = false;
    std::string buffer_;
    std::string error_;
};

template <class Take>
bool OutputFile::ReadBack(Take take) {
    Flush();
    std::string room(BUFFER_BYTES, '\0');
    for (size_t offset = 0; error_.empty();) {
        const long got = ReadAt(room.data(), room.size(), offset);
        if (got <= 0) {
            break;
        }
        offset += static_cast<size_t>(got);
        if (!take(std::string_view(room).substr(0, static_cast<size_t>(got)))) {
            return false;
        }
    }
    return error_.empty();
}

}  // namespace tiv::host
