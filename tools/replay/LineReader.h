// Reads a text file, or standard input for "-", line by line; gzip-compressed
// input is recognised and inflated on the fly.
#ifndef NUVIK_TOOLS_REPLAY_LINE_READER_H_
#define NUVIK_TOOLS_REPLAY_LINE_READER_H_

#include <string>
#include <vector>

#include <zlib.h>

namespace NuvikReplay {

class LineReader {
 public:
  // Throws InputError when the file cannot be opened.
  explicit LineReader(const std::string& path);
  ~LineReader();

  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // The next line without its line ending; false at the end of the input.
  // Throws InputError on a read error or damaged compressed data.
  bool Next(std::string& line);

  // The path, or "<stdin>".
  const std::string& name() const { return name_; }

 private:
  bool Refill();

  std::string name_;
  gzFile file_ = nullptr;
  std::vector<char> buffer_;
  std::size_t begin_ = 0;
  std::size_t end_ = 0;
};

}  // namespace NuvikReplay

#endif  // NUVIK_TOOLS_REPLAY_LINE_READER_H_
