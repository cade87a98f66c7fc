#include "cli/CliSupport.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

namespace cli {

int usageError(const std::string& reason) {
  std::fprintf(stderr, "xmldsig: %s\n", reason.c_str());
  return kExitUsage;
}

int usageError(const std::string& command, const std::string& reason) {
  std::fprintf(stderr, "xmldsig %s: %s (see 'xmldsig %s --help')\n", command.c_str(), reason.c_str(), command.c_str());
  return kExitUsage;
}

bool Output::open(const Args& args, std::string& error) {
  m_json = args.has("json");
  return openPath(args.value("output"), error);
}

bool Output::openPath(const std::string& path, std::string& error) {
  if (path.empty() || path == "-") return true;
  const size_t slash = path.rfind('/');
  const std::string dir = slash == std::string::npos ? std::string(".") : path.substr(0, slash + 1);
  const std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
  std::string pattern = dir + (slash == std::string::npos ? "/" : "") + "." + base + ".XXXXXX";
  const int fd = ::mkstemp(&pattern[0]);
  if (fd < 0) {
    error = "cannot write " + path + ": " + std::strerror(errno);
    return false;
  }
  // The result takes the target's permissions, or those a new file would get.
  struct stat st {};
  if (::stat(path.c_str(), &st) == 0) {
    ::fchmod(fd, st.st_mode & 07777);
  } else {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    ::fchmod(fd, 0666 & ~mask);
  }
  m_file = ::fdopen(fd, "wb");
  if (!m_file) {
    error = "cannot write " + path + ": " + std::strerror(errno);
    ::close(fd);
    ::unlink(pattern.c_str());
    m_file = stdout;
    return false;
  }
  m_target = path;
  m_temp = pattern;
  return true;
}

Output::~Output() {
  if (m_temp.empty()) {
    std::fflush(stdout);
    return;
  }
  std::fclose(m_file);
  ::unlink(m_temp.c_str());
}

void Output::write(const std::string& text) { std::fwrite(text.data(), 1, text.size(), m_file); }

std::string jsonLineText(const nlohmann::ordered_json& obj) {
  return obj.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void Output::jsonLine(const nlohmann::ordered_json& obj) {
  write(jsonLineText(obj));
  write("\n");
}

bool Output::commit(std::string& error) {
  if (m_temp.empty()) {
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
      error = "cannot write standard output";
      return false;
    }
    return true;
  }
  const bool written = std::fflush(m_file) == 0 && !std::ferror(m_file) && ::fsync(::fileno(m_file)) == 0;
  const int savedErrno = errno;
  std::fclose(m_file);
  m_file = stdout;
  if (!written || ::rename(m_temp.c_str(), m_target.c_str()) != 0) {
    error = "cannot write " + m_target + ": " + std::strerror(written ? errno : savedErrno);
    ::unlink(m_temp.c_str());
    m_temp.clear();
    return false;
  }
  m_temp.clear();
  return true;
}

int finishOutput(Output& out, const std::string& command, int status) {
  if (status == kExitUsage) return status;
  std::string error;
  if (!out.commit(error)) return usageError(command, error);
  return status;
}

bool jobsFromArgs(const Args& args, unsigned& jobs, std::string& error) {
  jobs = 1;
  if (!args.has("jobs")) return true;
  const std::string v = args.value("jobs");
  char* end = nullptr;
  const long n = std::strtol(v.c_str(), &end, 10);
  if (v.empty() || *end != '\0' || n < 1 || n > 256) {
    error = "-j needs a number from 1 to 256, not '" + v + "'";
    return false;
  }
  jobs = static_cast<unsigned>(n);
  return true;
}

void runInOrder(size_t count, unsigned jobs, const std::function<void(size_t)>& work,
                const std::function<void(size_t)>& emit) {
  if (jobs <= 1 || count <= 1) {
    for (size_t i = 0; i < count; ++i) {
      work(i);
      emit(i);
    }
    return;
  }
  std::mutex mutex;
  std::condition_variable doneCv;
  std::vector<char> done(count, 0);
  size_t nextToTake = 0;

  auto worker = [&]() {
    for (;;) {
      size_t i;
      {
        std::lock_guard<std::mutex> lock(mutex);
        if (nextToTake >= count) return;
        i = nextToTake++;
      }
      work(i);
      {
        std::lock_guard<std::mutex> lock(mutex);
        done[i] = 1;
      }
      doneCv.notify_all();
    }
  };
  std::vector<std::thread> threads;
  const size_t n = std::min<size_t>(jobs, count);
  for (size_t t = 0; t < n; ++t) threads.emplace_back(worker);
  for (size_t i = 0; i < count; ++i) {
    std::unique_lock<std::mutex> lock(mutex);
    doneCv.wait(lock, [&] { return done[i] != 0; });
    lock.unlock();
    emit(i);
  }
  for (std::thread& t : threads) t.join();
}

}  // namespace cli
