#include "replay/Documents.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "replay/Errors.h"

namespace NuvikReplay {

namespace {

bool IsSafeFileByte(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' || c == '-';
}

std::string EscapeFileName(const std::string& name) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string escaped;
  for (const char c : name) {
    if (IsSafeFileByte(c)) {
      escaped += c;
    } else {
      const auto byte = static_cast<unsigned char>(c);
      escaped += {'%', kHex[byte >> 4], kHex[byte & 15]};
    }
  }
  // "." and ".." name directories.
  if (escaped.find_first_not_of('.') == std::string::npos) escaped.insert(0, "%");
  return escaped;
}

std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string SystemError(const std::string& what, const std::string& path) {
  return what + " '" + path + "': " + std::strerror(errno);
}

}  // namespace

std::string DocumentPath(const std::string& target, const std::string& user, bool onePerUser) {
  if (!onePerUser) return target;
  return target + (target.empty() || target.back() == '/' ? "" : "/") + EscapeFileName(user) + ".json";
}

void LoadDocument(NuvikPrediction::Nuvik& nuvik, const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw InputError(SystemError("cannot open document", path));
  try {
    if (!(in >> nuvik)) {
      throw InputError(path + ": document rejected: not a saved model of this library, or damaged");
    }
  } catch (const InputError&) {
    throw;
  } catch (const std::exception& error) {
    throw InputError(path + ": document rejected: " + error.what());
  }
}

std::string SerializeDocument(const NuvikPrediction::Nuvik& nuvik) {
  std::ostringstream out;
  out << nuvik;
  return out.str();
}

bool IsLoadable(const std::string& document) {
  NuvikPrediction::Nuvik probe;
  std::istringstream in(document);
  try {
    return static_cast<bool>(in >> probe);
  } catch (const std::exception&) {
    return false;
  }
}

void PrepareSaveTarget(const std::string& target, bool onePerUser) {
  struct stat status {};
  if (onePerUser) {
    if (stat(target.c_str(), &status) != 0) {
      if (mkdir(target.c_str(), 0777) != 0) throw InputError(SystemError("cannot create directory", target));
    } else if (!S_ISDIR(status.st_mode)) {
      throw InputError("cannot save one document per user in '" + target + "': it is not a directory");
    }
    if (access(target.c_str(), W_OK) != 0) throw InputError(SystemError("cannot write in", target));
    return;
  }
  if (stat(target.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
    throw InputError("cannot save the document to '" + target + "': it is a directory");
  }
  const std::string directory = DirectoryOf(target);
  if (access(directory.c_str(), W_OK) != 0) throw InputError(SystemError("cannot write in", directory));
}

void PrepareFileTarget(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
    throw InputError("cannot write '" + path + "': it is a directory");
  }
  const std::string directory = DirectoryOf(path);
  if (access(directory.c_str(), W_OK) != 0) throw InputError(SystemError("cannot write in", directory));
}

void WriteFileAtomically(const std::string& path, const std::string& content) {
  std::string pattern = path + ".tmp-XXXXXX";
  std::vector<char> name(pattern.begin(), pattern.end());
  name.push_back('\0');
  const int fd = mkstemp(name.data());
  if (fd < 0) throw InputError(SystemError("cannot create a temporary file beside", path));
  const std::string temporary(name.data());
  const auto fail = [&](const char* what) {
    const std::string message = SystemError(what, path);
    close(fd);
    unlink(temporary.c_str());
    throw InputError(message);
  };
  std::size_t written = 0;
  while (written < content.size()) {
    const ssize_t count = write(fd, content.data() + written, content.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail("cannot write");
    written += static_cast<std::size_t>(count);
  }
  // mkstemp creates the file for its owner only; a document is an ordinary file.
  const mode_t mask = umask(0);
  umask(mask);
  if (fchmod(fd, 0666 & ~mask) != 0 || fsync(fd) != 0) fail("cannot write");
  if (close(fd) != 0) {
    const std::string message = SystemError("cannot write", path);
    unlink(temporary.c_str());
    throw InputError(message);
  }
  if (std::rename(temporary.c_str(), path.c_str()) != 0) {
    const std::string message = SystemError("cannot replace", path);
    unlink(temporary.c_str());
    throw InputError(message);
  }
}

}  // namespace NuvikReplay
