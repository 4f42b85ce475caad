// Starts the program on a free port.
#include "viewers/peer_process.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

namespace vantelink_bench {
namespace {

unsigned short free_port() {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (::bind(socket, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0)
    throw std::runtime_error("no port is free");
  ::close(socket);
  return ntohs(address.sin_port);
}

// Starts a program of the search path, without input and output.
pid_t started(const std::string& display, std::vector<std::string> command) {
  std::vector<char*> words;
  words.reserve(command.size() + 1);
  for (std::string& word : command)
    words.push_back(word.data());
  words.push_back(nullptr);
  const pid_t process = ::fork();
  if (process != 0) return process;
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int nothing = ::open("/dev/null", O_RDWR);
  for (int descriptor = 0; descriptor < 3; ++descriptor)
    ::dup2(nothing, descriptor);
  ::setenv("DISPLAY", display.c_str(), 1);
  ::execvp(words[0], words.data());
  ::_exit(127);
}

}  // namespace

PeerProcess::PeerProcess(const std::string& display, const Peer& peer) : port_(free_port()) {
  std::vector<std::string> command = peer.command;
  for (std::string& word : command) {
    if (word == "{port}") word = std::to_string(port_);
  }
  process_ = started(display, command);
}

PeerProcess::~PeerProcess() {
  if (process_ <= 0) return;
  ::kill(process_, SIGKILL);
  ::waitpid(process_, nullptr, 0);
}

}  // namespace vantelink_bench
