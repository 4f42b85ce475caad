// Connects the agents and lets them answer.
#include "fleet.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <stdexcept>

#include <nlohmann/json.hpp>

namespace vantelink_bench {
namespace {

using vlk::Msg;

constexpr std::chrono::milliseconds kAgain{500};  // the agent's pause before it connects again
constexpr std::chrono::milliseconds kLook{100};
constexpr std::chrono::seconds kPatience{120};
constexpr std::size_t kThreads = 2;
constexpr std::size_t kAgentsOfAnAddress = 200;

sockaddr_in address(std::uint32_t host, unsigned short port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(host);
  address.sin_port = htons(port);
  return address;
}

const sockaddr* plain(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

FleetAgent::FleetAgent(std::size_t number, unsigned short port, SSL_CTX* context)
    : number_(number), port_(port), context_(context) {}

FleetAgent::~FleetAgent() {
  if (socket_ >= 0) ::close(socket_);
}

void FleetAgent::connect() {
  const auto source = static_cast<std::uint32_t>(INADDR_LOOPBACK + 256 + number_ / kAgentsOfAnAddress);
  const sockaddr_in own = address(source, 0), relay = address(INADDR_LOOPBACK, port_);
  const int on = 1;
  socket_ = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  ::setsockopt(socket_, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof on);
  if (socket_ < 0 || ::bind(socket_, plain(own), sizeof own) != 0)
    throw std::runtime_error("no socket for an agent: raise the limit of open files");
  const bool good = ::connect(socket_, plain(relay), sizeof relay) == 0 || errno == EINPROGRESS;
  state_ = State::Connecting;
  waits_for_ = EPOLLOUT;
  if (!good) end(Clock::now());
}

void FleetAgent::end(Clock::time_point now) {
  if (socket_ >= 0) ::close(socket_);
  ssl_.reset();
  socket_ = -1;
  waits_for_ = 0;
  state_ = State::Away;
  due_ = now + kAgain;
  answer_.clear();
  parser_ = {};
}

void FleetAgent::go_on(Clock::time_point now) {
  if (state_ == State::Away) {
    if (now >= due_) connect();
    return;
  }
  if (state_ == State::Connecting) {
    int error = 0;
    socklen_t size = sizeof error;
    ::getsockopt(socket_, SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0) return end(now);
    ssl_.reset(SSL_new(context_));
    SSL_set_fd(ssl_.get(), socket_);
    state_ = State::Handshake;
  }
  if (state_ == State::Handshake) {
    const int result = SSL_connect(ssl_.get());
    if (result != 1) {
      if (!wait(result)) end(now);
      return;
    }
    std::string key;
    state_ = State::Upgrade;
    if (!send(vlk::build_upgrade_request("localhost", "/link", key))) return end(now);
  }
  if (!read()) end(now);
}

bool FleetAgent::wait(int result) {
  const int error = SSL_get_error(ssl_.get(), result);
  waits_for_ = error == SSL_ERROR_WANT_WRITE ? EPOLLOUT : EPOLLIN;
  return error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE;
}

bool FleetAgent::read() {
  std::array<unsigned char, 4096> bytes{};
  for (;;) {
    const int count = SSL_read(ssl_.get(), bytes.data(), static_cast<int>(bytes.size()));
    if (count <= 0) return wait(count);
    if (!parse(bytes.data(), static_cast<std::size_t>(count))) return false;
  }
}

bool FleetAgent::parse(const unsigned char* bytes, std::size_t count) {
  if (state_ == State::Upgrade) {
    answer_.append(reinterpret_cast<const char*>(bytes), count);
    if (!answer_.ends_with("\r\n\r\n")) return true;
    if (answer_.find(" 101 ") == std::string::npos) return false;
    state_ = State::Joining;
    return send_message(Msg::Hello, R"({"role":"agent"})") &&
           (identity_.empty() ? send_message(Msg::Enroll, R"({"name":"Ship","machine_name":"ship"})")
                              : send_message(Msg::Login, identity_));
  }
  parser_.feed(bytes, count);
  while (const auto frame = parser_.next()) {
    vlk::Envelope envelope;
    if (!vlk::decode_envelope(frame->payload.data(), frame->payload.size(), envelope)) continue;
    if (!handle(envelope)) return false;
  }
  return true;
}

bool FleetAgent::handle(const vlk::Envelope& envelope) {
  const std::string payload(envelope.payload.begin(), envelope.payload.end());
  switch (static_cast<Msg>(envelope.type)) {
    case Msg::Heartbeat:
      return send_message(Msg::Heartbeat, payload);
    case Msg::EnrollResult: {
      const auto fields = nlohmann::json::parse(payload);
      identity_ = nlohmann::json{
          {"agent_id", fields["agent_id"]},
          {"secret", fields["agent_secret"]},
          {"name",
           "Ship"}}.dump();
      return true;
    }
    case Msg::LoginResult:
      state_ = State::LoggedIn;
      return true;
    case Msg::Error:
      return false;
    default:
      return true;
  }
}

bool FleetAgent::send_message(Msg type, const std::string& json) {
  const auto envelope = vlk::encode_envelope(type, 0, reinterpret_cast<const unsigned char*>(json.data()),
                                             json.size(), vlk::kJsonPayload);
  const auto frame = vlk::encode_frame(vlk::kWsBinary, envelope.data(), envelope.size(), true);
  return send({frame.begin(), frame.end()});
}

// What an agent sends is small, so the system takes all of it.
bool FleetAgent::send(const std::string& bytes) {
  return SSL_write(ssl_.get(), bytes.data(), static_cast<int>(bytes.size())) > 0;
}

Fleet::Fleet(std::size_t agents, unsigned short port)
    : size_(agents), context_(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free) {
  std::signal(SIGPIPE, SIG_IGN);
  SSL_CTX_set_mode(context_.get(), SSL_MODE_RELEASE_BUFFERS);
  for (std::size_t thread = 0; thread < kThreads; ++thread) {
    std::vector<std::unique_ptr<FleetAgent>> own;
    for (std::size_t number = thread; number < agents; number += kThreads)
      own.push_back(std::make_unique<FleetAgent>(number, port, context_.get()));
    threads_.emplace_back([this, own = std::move(own)] { run(own); });
  }
}

Fleet::~Fleet() {
  stopping_ = true;
  for (std::thread& thread : threads_)
    thread.join();
}

void Fleet::run(const std::vector<std::unique_ptr<FleetAgent>>& agents) {
  const int poll = ::epoll_create1(EPOLL_CLOEXEC);
  // Closing a socket removes it from the poll.
  const auto go_on = [&](FleetAgent& agent) {
    const bool before = agent.logged_in();
    const int socket = agent.socket();
    const std::uint32_t waited_for = agent.waits_for();
    agent.go_on(Clock::now());
    if (agent.logged_in() && !before) ++logged_in_;
    if (!agent.logged_in() && before) --logged_in_;
    if (agent.socket() < 0 || (agent.socket() == socket && agent.waits_for() == waited_for)) return;
    epoll_event event{agent.waits_for(), {&agent}};
    ::epoll_ctl(poll, agent.socket() == socket ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, agent.socket(), &event);
  };
  auto looked = Clock::time_point();
  while (!stopping_) {
    if (Clock::now() - looked >= kLook) {
      for (const auto& agent : agents) {
        if (agent->socket() < 0) go_on(*agent);
      }
      looked = Clock::now();
    }
    std::array<epoll_event, 256> events{};
    const int count = ::epoll_wait(poll, events.data(), static_cast<int>(events.size()), 50);
    for (int i = 0; i < count; ++i)
      go_on(*static_cast<FleetAgent*>(events[static_cast<std::size_t>(i)].data.ptr));
  }
  ::close(poll);
}

double Fleet::wait_for_all() const {
  const auto begin = Clock::now();
  while (logged_in_ < size_) {
    if (Clock::now() - begin > kPatience)
      throw std::runtime_error("only " + std::to_string(logged_in_) + " agents are logged in");
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

void Fleet::wait_for_loss() const {
  while (logged_in_ > size_ / 2)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

}  // namespace vantelink_bench
