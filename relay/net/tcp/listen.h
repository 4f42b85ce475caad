// The sockets on which the relay listens.
#pragma once

#include <string>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/ip/tcp.hpp>

namespace vlk::relay {

// Listens on the IP address and the port; 0 means any free port. Throws std::runtime_error with a sentence
// for the operator, which names the `option` that sets the port.
[[nodiscard]] boost::asio::ip::tcp::acceptor listen(const boost::asio::any_io_executor& executor,
                                                    const std::string& address, unsigned short port,
                                                    const char* option);

}  // namespace vlk::relay
