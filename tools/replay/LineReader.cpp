#include "replay/LineReader.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "replay/Errors.h"

namespace NuvikReplay {

namespace {

constexpr std::size_t kChunkSize = 1 << 16;

}  // namespace

LineReader::LineReader(const std::string& path) : name_(path == "-" ? "<stdin>" : path), buffer_(kChunkSize) {
  if (path == "-") {
    const int fd = dup(STDIN_FILENO);
    if (fd >= 0) file_ = gzdopen(fd, "rb");
    if (file_ == nullptr && fd >= 0) close(fd);
  } else {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
      throw InputError("cannot read '" + path + "': it is a directory");
    }
    errno = 0;
    file_ = gzopen(path.c_str(), "rb");
  }
  if (file_ == nullptr) {
    throw InputError("cannot open '" + name_ + "': " + (errno != 0 ? std::strerror(errno) : "out of memory"));
  }
  gzbuffer(file_, kChunkSize);
}

LineReader::~LineReader() { gzclose(file_); }

bool LineReader::Refill() {
  const int read = gzread(file_, buffer_.data(), static_cast<unsigned>(buffer_.size()));
  if (read < 0) {
    int code = 0;
    const char* message = gzerror(file_, &code);
    throw InputError("cannot read '" + name_ + "': " + (code == Z_ERRNO ? std::strerror(errno) : message));
  }
  begin_ = 0;
  end_ = static_cast<std::size_t>(read);
  return read > 0;
}

bool LineReader::Next(std::string& line) {
  line.clear();
  bool any = false;
  while (true) {
    if (begin_ == end_ && !Refill()) break;
    any = true;
    const char* first = buffer_.data() + begin_;
    const char* last = buffer_.data() + end_;
    const char* newline = std::find(first, last, '\n');
    line.append(first, newline);
    begin_ = static_cast<std::size_t>(newline - buffer_.data());
    if (newline != last) {
      ++begin_;
      break;
    }
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return any;
}

}  // namespace NuvikReplay
