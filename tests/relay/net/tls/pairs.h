// Certificates with their keys that tests put into a relay's files, and what a relay shows to a new
// connection.
#pragma once

#include <cstdint>
#include <string>

#include "relay/net/tls/certificate.h"

namespace vlk::relay {

// PEM texts that belong together.
struct TestPair {
  std::string certificate;
  std::string key;
};
// A self-signed certificate for localhost, valid for so many seconds from now on.
TestPair make_test_pair(std::int64_t seconds, std::int64_t begins_in = -3600);

// A private key, as PEM, that needs a password.
std::string make_locked_key();

// Write one file, or both, in place of what is there. The key is private.
void overwrite_file(const std::string& path, const std::string& content);
void rename_over(const std::string& path, const std::string& content);
void overwrite_pair(const CertificateFiles& files, const TestPair& pair);

// The certificate, as PEM, that a server on this port of 127.0.0.1 shows; empty if the handshake fails.
std::string served_certificate(unsigned short port);

// Why a client that trusts only the certificates in the file `trusted`, and is otherwise set up as OpenSSL is
// by default, refuses a server with these files under the name or address `host` at the date `now`, in
// seconds since 1970. Empty if the handshake succeeds.
std::string refusal_of(const CertificateFiles& server, const std::string& trusted, const std::string& host,
                       std::int64_t now);

}  // namespace vlk::relay
