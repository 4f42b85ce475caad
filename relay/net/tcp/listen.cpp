// Opens a listening socket.
#include "relay/net/tcp/listen.h"

#include <stdexcept>

#include <boost/asio/ip/v6_only.hpp>

namespace asio = boost::asio;
using tcp = asio::ip::tcp;

namespace vlk::relay {

tcp::acceptor listen(const asio::any_io_executor& executor, const std::string& address, unsigned short port,
                     const char* option) {
  boost::system::error_code error;
  const auto parsed = asio::ip::make_address(address, error);
  if (error) throw std::runtime_error("\"" + address + "\" is not an IP address");
  const tcp::endpoint endpoint(parsed, port);
  try {
    tcp::acceptor acceptor(executor, endpoint.protocol());
    acceptor.set_option(tcp::acceptor::reuse_address(true));
    // "::" accepts IPv4 too, whatever the system's default is.
    if (parsed.is_v6()) acceptor.set_option(asio::ip::v6_only(!parsed.is_unspecified()));
    acceptor.bind(endpoint);
    acceptor.listen();
    return acceptor;
  } catch (const boost::system::system_error& failure) {
    throw std::runtime_error("cannot listen on " + address + " port " + std::to_string(port) + ": " +
                             failure.code().message() + "; choose another with " + option);
  }
}

}  // namespace vlk::relay
