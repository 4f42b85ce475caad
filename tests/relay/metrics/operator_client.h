// A client of the port for operators, on plain sockets so that it can misbehave.
#pragma once

#include <map>
#include <string>

namespace vlk::relay {

// Sends the bytes to this port of 127.0.0.1 and returns all bytes that arrive until the relay closes the
// connection.
std::string exchange(unsigned short port, const std::string& bytes);

struct OperatorAnswer {
  unsigned status = 0;
  std::string head;
  std::string text;
};
OperatorAnswer ask_operators_port(unsigned short port, const std::string& path,
                                  const std::string& method = "GET");

// The values of a text in Prometheus' format, by name and labels as written there.
std::map<std::string, double> metric_values(const std::string& text);

// A connection that sends only what it is told to.
class IdleConnection {
 public:
  explicit IdleConnection(unsigned short port);
  ~IdleConnection();
  IdleConnection(const IdleConnection&) = delete;
  IdleConnection& operator=(const IdleConnection&) = delete;

  // Returns false if the relay has closed the connection.
  bool send(const std::string& bytes) const;
  // Reads until the relay closes the connection.
  [[nodiscard]] std::string read() const;

 private:
  int socket_;
};

}  // namespace vlk::relay
