#include "cli/CliSupport.h"

#include <cerrno>
#include <condition_variable>
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
  std::fprintf(stderr, "xmldsig %s: %s (see 'xmldsig %s --help')\n", command.c_str(), reason.c_str(),
               command.c_str());
  return kExitUsage;
}

bool Output::open(const Args& args, std::string& error) {
  m_json = args.has("json");
  const std::string path = args.value("output");
  if (path.empty() || path == "-") return true;
  m_file = std::fopen(path.c_str(), "wb");
  if (!m_file) {
    error = "cannot write " + path + ": " + std::strerror(errno);
    m_file = stdout;
    return false;
  }
  m_owned = true;
  return true;
}

Output::~Output() {
  if (m_owned) std::fclose(m_file);
  else std::fflush(m_file);
}

void Output::write(const std::string& text) { std::fwrite(text.data(), 1, text.size(), m_file); }

void Output::jsonLine(const nlohmann::ordered_json& obj) {
  write(obj.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
  write("\n");
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
