#include "cli/InputFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace cli {

namespace {

// Closes the descriptor it owns (never standard input).
class Fd {
 public:
  explicit Fd(int fd, bool owned) : m_fd(fd), m_owned(owned) {}
  ~Fd() {
    if (m_owned && m_fd >= 0) ::close(m_fd);
  }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return m_fd; }

 private:
  int m_fd;
  bool m_owned;
};

}  // namespace

bool readInput(const std::string& path, std::string& bytes, std::string& error) {
  bytes.clear();
  const bool stdinput = path == "-";
  const std::string shown = stdinput ? std::string("standard input") : path;
  const Fd fd(stdinput ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC), !stdinput);
  if (fd.get() < 0) {
    error = "cannot open " + shown + ": " + std::strerror(errno);
    return false;
  }
  struct stat st {};
  if (::fstat(fd.get(), &st) != 0) {
    error = "cannot read " + shown + ": " + std::strerror(errno);
    return false;
  }
  if (S_ISDIR(st.st_mode)) {
    error = "cannot read " + shown + ": it is a directory";
    return false;
  }
  // A regular file's size is known: reserve it so a large document is not copied while
  // growing. Anything else (pipe, FIFO, terminal, device) is read until it ends.
  if (S_ISREG(st.st_mode) && st.st_size > 0) bytes.reserve(static_cast<size_t>(st.st_size));
  char chunk[1 << 16];
  for (;;) {
    const ssize_t n = ::read(fd.get(), chunk, sizeof chunk);
    if (n > 0) {
      bytes.append(chunk, static_cast<size_t>(n));
    } else if (n == 0) {
      return true;
    } else if (errno != EINTR) {
      error = "cannot read " + shown + ": " + std::strerror(errno);
      bytes.clear();
      return false;
    }
  }
}

}  // namespace cli
