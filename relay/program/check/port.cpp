// Checks the port by binding it for a moment, without listening on it, and finds out who has it otherwise.
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/v6_only.hpp>

#include "relay/program/check/checks.h"
#include "relay/program/folder/data_folder.h"

namespace fs = std::filesystem;
using tcp = boost::asio::ip::tcp;

namespace vlk::relay {
namespace {

// The number of the socket that listens on the port, as /proc names it; nothing if the system has none.
std::optional<std::string> socket_on(unsigned short port) {
  for (const char* table : {"/proc/net/tcp", "/proc/net/tcp6"}) {
    std::ifstream in(table);
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) {
      std::istringstream words(line);
      std::string number, local, remote, state, queues, timer, retries, user, timeout, node;
      words >> number >> local >> remote >> state >> queues >> timer >> retries >> user >> timeout >> node;
      const std::size_t colon = local.rfind(':');
      if (state != "0A" || colon == std::string::npos) continue;
      if (std::strtoul(local.c_str() + colon + 1, nullptr, 16) == port) return node;
    }
  }
  return std::nullopt;
}

// The process that has the socket; nothing if it may not be seen.
std::optional<pid_t> process_of(const std::string& socket) {
  const std::string wanted = "socket:[" + socket + "]";
  std::error_code error;
  for (const auto& process : fs::directory_iterator("/proc", error)) {
    const int id = std::atoi(process.path().filename().c_str());
    if (id <= 0) continue;
    std::error_code hidden;
    for (const auto& entry : fs::directory_iterator(process.path() / "fd", hidden)) {
      if (fs::read_symlink(entry.path(), hidden) == wanted) return id;
    }
  }
  return std::nullopt;
}

std::string name_of(pid_t process) {
  std::ifstream in("/proc/" + std::to_string(process) + "/comm");
  std::string name;
  std::getline(in, name);
  return name.empty() ? "a program" : name;
}

void report_taken(const Options& options, const std::string& what, Findings& findings) {
  const auto relay = relay_of(options.data);
  const auto socket = socket_on(options.port);
  const auto process = socket ? process_of(*socket) : std::nullopt;
  if (process && relay == process)
    return findings.ok(what + " is used by the relay of this data folder (process " + std::to_string(*relay) +
                       ")");
  if (!process && relay) {
    return findings.warning(what + " is in use, probably by the relay of this data folder (process " +
                            std::to_string(*relay) +
                            "); run the check as its user, or as the superuser, to see");
  }
  const std::string who = process ? name_of(*process) + " (process " + std::to_string(*process) + ")"
                                  : "a program of another user";
  findings.wrong(what + " is used by " + who + "; end it, or choose another port with --port");
}

void report(const Options& options, const boost::system::error_code& error, Findings& findings) {
  const std::string what = "port " + std::to_string(options.port) + " of " + options.address;
  if (!error) return findings.ok(options.port == 0 ? "the system chooses a free port" : what + " is free");
  switch (error.value()) {
    case EADDRINUSE:
      return report_taken(options, what, findings);
    case EACCES:
      return findings.wrong(what +
                            " needs a right that this user lacks; give the service CAP_NET_BIND_SERVICE "
                            "(AmbientCapabilities= in the service), or choose a port from 1024 on");
    case EADDRNOTAVAIL:
      return findings.wrong(options.address + " is not an address of this machine; check --address");
    default:
      findings.wrong(what + " cannot be used: " + error.message() + "; check --address and --port");
  }
}

}  // namespace

void check_port(const Options& options, Findings& findings) {
  boost::system::error_code error;
  const auto address = boost::asio::ip::make_address(options.address, error);
  if (error) return findings.wrong("\"" + options.address + "\" is not an IP address; check --address");
  boost::asio::io_context context;
  const tcp::endpoint endpoint(address, options.port);
  tcp::acceptor acceptor(context);
  acceptor.open(endpoint.protocol(), error);
  // The options of the relay's own port.
  if (!error) acceptor.set_option(tcp::acceptor::reuse_address(true), error);
  if (!error && address.is_v6())
    acceptor.set_option(boost::asio::ip::v6_only(!address.is_unspecified()), error);
  if (!error) acceptor.bind(endpoint, error);
  report(options, error, findings);
}

}  // namespace vlk::relay
