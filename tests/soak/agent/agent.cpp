// One native agent as a process of its own, for the soak test: the agent's portable code with fakes in place
// of Windows. It answers requests for sessions after a random time, sends each clipboard back, and serves the
// files of the host.
//
//     soak_agent --host localhost --port N --name NAME --identity FILE --seed N
//
// It trusts the certificates in the file that SSL_CERT_FILE names. The identity is kept in FILE between two
// runs. Lines of JSON on standard output say what it has seen. SIGTERM ends it; the exit status is 1 if a
// thread of a download remains.
#include <unistd.h>

#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "client/agent_client.h"
#include "fakes/fakes.h"
#include "soak/agent/scene.h"
#include "support/waiting.h"

namespace {

using vlk::agent::AgentCallbacks;
using vlk::agent::AgentClient;
using vlk::agent::AgentConfig;
using Bytes = std::vector<std::uint8_t>;

constexpr long kRoundNanoseconds = 20'000'000;  // between two looks at the tasks
constexpr std::int64_t kMillisecond = 1'000'000;
constexpr unsigned kMostAnswerMs = 3000;
constexpr unsigned kRejectEvery = 8;  // of so many requests, one is refused on average
constexpr std::uint8_t kTextClip = 1;

void say(const std::string& line) {
  static std::mutex lock;
  const std::lock_guard<std::mutex> guard(lock);
  std::puts(line.c_str());
  std::fflush(stdout);
}

// What the main thread has to do, as the window's thread of the real agent has. Usable on any thread.
class Tasks {
 public:
  void add(std::int64_t at, std::function<void()> task) {
    const std::lock_guard<std::mutex> guard(lock_);
    tasks_.emplace(at, std::move(task));
  }

  void run_due(std::int64_t now) {
    for (std::function<void()> task = take(now); task; task = take(now))
      task();
  }

 private:
  std::function<void()> take(std::int64_t now) {
    const std::lock_guard<std::mutex> guard(lock_);
    if (tasks_.empty() || tasks_.begin()->first > now) return nullptr;
    std::function<void()> task = std::move(tasks_.begin()->second);
    tasks_.erase(tasks_.begin());
    return task;
  }

  std::mutex lock_;
  std::multimap<std::int64_t, std::function<void()>> tasks_;
};

// The steady clock whose sleeps end early when the process is to end, so that it need not wait for the
// agent's pause between two attempts to connect.
class EndingClock {
 public:
  vlk::Clock clock() {
    return {steady_.now, [this](std::int64_t deadline) {
              std::unique_lock<std::mutex> guard(lock_);
              ended_.wait_for(guard, std::chrono::nanoseconds(deadline - steady_.now()),
                              [this] { return end_; });
            }};
  }
  [[nodiscard]] std::int64_t now() const { return steady_.now(); }

  void end() {
    const std::lock_guard<std::mutex> guard(lock_);
    end_ = true;
    ended_.notify_all();
  }

 private:
  const vlk::Clock steady_ = vlk::steady_clock();
  std::mutex lock_;
  std::condition_variable ended_;
  bool end_ = false;
};

// A text becomes another one; everything else is sent back unchanged.
Bytes answer_to(Bytes clip) {
  constexpr std::string_view kSeen = "seen ";
  if (!clip.empty() && clip.front() == kTextClip) clip.insert(clip.begin() + 1, kSeen.begin(), kSeen.end());
  return clip;
}

class SoakAgent {
 public:
  SoakAgent(AgentConfig config, std::uint32_t seed)
      : random_(seed),
        client_(std::make_unique<AgentClient>(std::move(config), callbacks(), clock_.clock())) {}

  void run(const sigset_t& ending) {
    client_->start();
    const timespec round = {0, kRoundNanoseconds};
    while (sigtimedwait(&ending, nullptr, &round) < 0) {
      tasks_.run_due(clock_.now());
      // The journal would grow without limit.
      vantelink_fakes::clear_journal();
    }
    clock_.end();
    client_->stop();
    client_.reset();
  }

 private:
  AgentCallbacks callbacks() {
    AgentCallbacks result;
    result.on_status = [](vlk::agent::Status status, int) {
      say("{\"event\":\"status\",\"status\":" + std::to_string(static_cast<int>(status)) + '}');
    };
    result.on_session_request = [this](std::uint32_t session, const std::string&) {
      tasks_.add(clock_.now(), [this, session] { ask(session); });
    };
    result.on_clipboard = [this](const Bytes& clip) {
      tasks_.add(clock_.now(), [this, clip] {
        const Bytes answer = answer_to(clip);
        client_->send_clipboard(answer.data(), answer.size());
      });
    };
    result.on_session_ended = [this](std::uint32_t session) {
      tasks_.add(clock_.now(), [this, session] {
        if (asked_.erase(session) != 0) client_->reject_session(session, "declined");
      });
    };
    return result;
  }

  // As if a question were on the screen until the local user answers.
  void ask(std::uint32_t session) {
    const bool yes = random_() % kRejectEvery != 0;
    const auto wait_ms = static_cast<std::int64_t>(random_() % kMostAnswerMs);
    const std::int64_t at = clock_.now() + wait_ms * kMillisecond;
    asked_[session] = yes;
    tasks_.add(at, [this, session] {
      const auto found = asked_.find(session);
      if (found == asked_.end()) return;
      const bool accepts = found->second;
      asked_.erase(found);
      say("{\"event\":\"answer\",\"session\":" + std::to_string(session) +
          ",\"accepts\":" + (accepts ? "1}" : "0}"));
      if (accepts) {
        client_->accept_session(session);
      } else {
        client_->reject_session(session, "declined");
      }
    });
  }

  std::minstd_rand random_;  // used on the main thread, as asked_ is
  std::map<std::uint32_t, bool> asked_;
  Tasks tasks_;
  EndingClock clock_;
  std::unique_ptr<AgentClient> client_;
};

std::map<std::string, std::string> options(int count, char** words) {
  std::map<std::string, std::string> result;
  for (int i = 1; i + 1 < count; i += 2)
    result[words[i]] = words[i + 1];
  for (const char* const needed : {"--host", "--port", "--name", "--identity", "--seed"}) {
    if (result.contains(needed)) continue;
    std::fprintf(stderr, "soak_agent: %s is missing\n", needed);
    std::exit(2);
  }
  return result;
}

void read_identity(const std::string& path, AgentConfig& config) {
  std::ifstream file(path);
  file >> config.agent_id >> config.agent_secret;
}

// A file that is renamed is complete, also when the process is killed.
void write_identity(const std::string& path) {
  const AgentConfig config = vantelink_fakes::saved_config();
  {
    std::ofstream file(path + ".new");
    file << config.agent_id << '\n' << config.agent_secret << '\n';
  }
  std::filesystem::rename(path + ".new", path);
}

std::ptrdiff_t threads() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
}

}  // namespace

int main(int count, char** words) {
  // Blocked before the first thread starts, so that only run() takes it.
  sigset_t ending;
  sigemptyset(&ending);
  sigaddset(&ending, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &ending, nullptr);

  const std::map<std::string, std::string> given = options(count, words);
  const std::string identity = given.at("--identity");
  vantelink_fakes::reset();
  vantelink_soak::set_scene(given.at("--name"), std::to_string(::getpid()));
  AgentConfig config;
  config.display_name = given.at("--name");
  config.server_host = given.at("--host");
  config.server_port = static_cast<std::uint32_t>(std::stoul(given.at("--port")));
  read_identity(identity, config);
  vantelink_fakes::watch([&identity](const std::string& line) {
    if (line.starts_with("save_config")) write_identity(identity);
    if (line.starts_with("InjectInputBatch "))
      say("{\"event\":\"input\",\"bytes\":" + line.substr(line.find(' ') + 1) + '}');
  });

  // ThreadSanitizer starts a thread of its own together with the first one.
  std::thread([] {}).join();
  const std::ptrdiff_t at_start = threads();
  SoakAgent(std::move(config), static_cast<std::uint32_t>(std::stoul(given.at("--seed")))).run(ending);
  // Downloads end by themselves as soon as they cannot send.
  if (vantelink_test::eventually([at_start] { return threads() <= at_start; })) return 0;
  say("{\"event\":\"threads-remain\"}");
  return 1;
}
