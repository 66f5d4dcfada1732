// Calls of zlib.
#include "host/export/gzip_file.h"

#include <zlib.h>

#include <algorithm>

namespace tiv::host {

namespace {

constexpr size_t ROOM_BYTES = 64 << 10;
constexpr size_t MAX_STEP_BYTES = 1 << 30;
constexpr int LEVEL = 4;
constexpr int GZIP_WINDOW = 15 + 16;  // the largest window, in gzip's format
constexpr int MEMORY_LEVEL = 8;

}  // namespace

struct GzipFile::Stream {
    z_stream z = {};  // without an initialisation zlib refuses every call with it
    std::string room = std::string(ROOM_BYTES, '\0');
};

GzipFile::GzipFile(std::string path)
    : file_(std::move(path)), stream_(std::make_unique<Stream>()) {}

GzipFile::~GzipFile() { (void)deflateEnd(&stream_->z); }

bool GzipFile::Open() {
    if (deflateInit2(&stream_->z, LEVEL, Z_DEFLATED, GZIP_WINDOW, MEMORY_LEVEL,
                     Z_DEFAULT_STRATEGY) != Z_OK) {
        error_ = "cannot compress: out of memory";
        return false;
    }
    return file_.Open();
}

std::string GzipFile::Error() const { return error_.empty() ? file_.Error() : error_; }

void GzipFile::Deflate(std::string_view bytes, bool isEnd) {
    z_stream& z = stream_->z;
    do {
        const std::string_view step = bytes.substr(0, MAX_STEP_BYTES);
        bytes.remove_prefix(step.size());
        // zlib does not write to what it reads.
        z.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(step.data()));
        z.avail_in = static_cast<uInt>(step.size());
        const int flush = isEnd && bytes.empty() ? Z_FINISH : Z_NO_FLUSH;
        do {
            z.next_out = reinterpret_cast<Bytef*>(stream_->room.data());
            z.avail_out = ROOM_BYTES;
            (void)deflate(&z, flush);
            file_.Write(std::string_view(stream_->room).substr(0, ROOM_BYTES - z.avail_out));
        } while (z.avail_out == 0);
    } while (!bytes.empty());
}

bool GzipFile::Commit() {
    Deflate({}, true);
    return Error().empty() && file_.Commit();
}

}  // namespace tiv::host
