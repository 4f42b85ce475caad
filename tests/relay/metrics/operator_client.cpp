// Connects with the system's sockets.
#include "relay/metrics/operator_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace vlk::relay {

IdleConnection::IdleConnection(unsigned short port) : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    throw std::runtime_error("cannot connect to the port for operators");
}

IdleConnection::~IdleConnection() {
  ::close(socket_);
}

bool IdleConnection::send(const std::string& bytes) const {
  return ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

std::string IdleConnection::read() const {
  std::string all;
  char buffer[4096];
  for (;;) {
    const ssize_t size = ::recv(socket_, buffer, sizeof buffer, 0);
    if (size <= 0) return all;
    all.append(buffer, static_cast<std::size_t>(size));
  }
}

std::string exchange(unsigned short port, const std::string& bytes) {
  const IdleConnection connection(port);
  connection.send(bytes);
  return connection.read();
}

OperatorAnswer ask_operators_port(unsigned short port, const std::string& path, const std::string& method) {
  const std::string all = exchange(port, method + ' ' + path + " HTTP/1.1\r\nHost: localhost\r\n\r\n");
  const std::size_t end = all.find("\r\n\r\n");
  if (!all.starts_with("HTTP/1.1 ") || end == std::string::npos) return {};
  return {static_cast<unsigned>(std::atoi(all.c_str() + 9)), all.substr(0, end), all.substr(end + 4)};
}

std::map<std::string, double> metric_values(const std::string& text) {
  std::map<std::string, double> values;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t space = line.rfind(' ');
    if (!line.starts_with('#') && space != std::string::npos)
      values[line.substr(0, space)] = std::strtod(line.c_str() + space, nullptr);
  }
  return values;
}

}  // namespace vlk::relay
