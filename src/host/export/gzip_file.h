// A file that is compressed as it is written.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "host/output_file.h"

namespace tiv::host {

// An OutputFile in gzip's format. The first failure is kept, everything behind it does nothing.
class GzipFile {
 public:
    explicit GzipFile(std::string path);
    ~GzipFile();
    GzipFile(const GzipFile&) = delete;
    GzipFile& operator=(const GzipFile&) = delete;

    [[nodiscard]] bool Open();
    void Write(std::string_view bytes) { Deflate(bytes, false); }
    [[nodiscard]] bool Commit();

    [[nodiscard]] std::string Error() const;
    [[nodiscard]] const std::string& Path() const { return file_.Path(); }

 private:
    struct Stream;
    void Deflate(std::string_view bytes, bool isEnd);

    OutputFile file_;
    std::unique_ptr<Stream> stream_;
    std::string error_;
};

}  // namespace tiv::host
