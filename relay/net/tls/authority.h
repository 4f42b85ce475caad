// A certificate authority for one relay: its certificate, which machines trust, and the leaves that it signs.
// Both have ECDSA P-256 keys, which make handshakes cheap when all agents reconnect at once.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "relay/net/tls/certificate.h"

namespace vlk::relay {

struct CertificateAndKey {
  Certificate certificate;
  PrivateKey key;
};

// `hosts` in the form of plain_host(), with "localhost" and 127.0.0.1, sorted and without repetitions. Throws
// std::runtime_error if one of them can be neither a name nor an address.
[[nodiscard]] std::vector<std::string> names_for(const std::vector<std::string>& hosts);

// A new authority for `hosts`: it can sign certificates of servers with names_for(hosts) and names below
// them, and nothing else. It is valid for 10 years from `now` on, in seconds since 1970. Throws
// std::runtime_error.
[[nodiscard]] CertificateAndKey make_authority(const std::vector<std::string>& hosts, std::int64_t now);

// A new leaf for `names` that is valid for 90 days from `now` on, but not longer than the authority, whose
// key is `key`. The authority's constraints are not looked at: clients refuse a leaf that does not keep to
// them. Throws std::runtime_error.
[[nodiscard]] CertificateAndKey make_leaf(const Certificate& authority, const PrivateKey& key,
                                          const std::vector<std::string>& names, std::int64_t now);

// Whether a certificate may sign others.
[[nodiscard]] bool is_authority(X509* certificate);
// Whether `key` is the private key of `certificate`, and whether `authority` has signed `leaf`.
[[nodiscard]] bool belong_together(const Certificate& certificate, const PrivateKey& key);
[[nodiscard]] bool has_signed(const Certificate& authority, const Certificate& leaf);
// Whether the constraints of an authority permit a leaf with this name or address.
[[nodiscard]] bool permits(const Certificate& authority, const std::string& host);

}  // namespace vlk::relay
