// The relay's own authority and its leaf, in the data folder.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "relay/base/clock.h"
#include "relay/net/tls/authority.h"
#include "relay/net/tls/certificate.h"

namespace vlk::relay {

// What machines trust, with its key: an authority, or the self-signed certificate of an older version.
inline constexpr char kTrustedFile[] = "relay-cert.pem";
inline constexpr char kTrustedKeyFile[] = "relay-key.pem";
// What the relay shows, in one file, so that it is replaced as a whole: a key and its leaf with the
// authority, or a copy of the self-signed certificate and its key.
inline constexpr char kLeafFile[] = "relay-leaf.pem";
// An authority that was made in advance, so that machines trust it before it is used.
inline constexpr char kNextFile[] = "relay-next-cert.pem";
inline constexpr char kNextKeyFile[] = "relay-next-key.pem";

[[nodiscard]] CertificateFiles trusted_files(const std::string& data);
[[nodiscard]] CertificateFiles leaf_files(const std::string& data);
[[nodiscard]] CertificateFiles next_files(const std::string& data);

// Reads a chain and the key of its first certificate. Throws std::runtime_error with a sentence for the
// operator if one of the files cannot be read, if other users can open the key, or if the two do not belong
// together.
struct ChainAndKey {
  std::vector<Certificate> chain;
  PrivateKey key;
};
[[nodiscard]] ChainAndKey read_pair(const CertificateFiles& files);
// Writes a key, and then its certificate. Throws std::runtime_error.
void write_pair(const CertificateFiles& files, const CertificateAndKey& pair);

// Completes the exchange of the authority for the next one that a cut, for instance of the power, has left
// half done: the next key is in its place and its certificate is not. Throws std::runtime_error.
void complete_renewal(const std::string& data);

// The names of names_for(hosts) that an authority does not permit.
[[nodiscard]] std::vector<std::string> names_not_permitted(const Certificate& authority,
                                                           const std::vector<std::string>& hosts);
// Why a leaf has to be made again, as the end of a sentence that begins with the leaf; empty if it is well.
[[nodiscard]] std::string fault_of_leaf(const CertificateFiles& leaf, const Certificate& authority,
                                        const std::vector<std::string>& hosts, std::int64_t now);

// Keeps the leaf valid. prepare() comes first; the rest is used by one thread at a time.
class OwnCertificate {
 public:
  using Now = std::function<std::int64_t()>;  // in seconds since 1970, callable from any thread
  struct State {
    std::int64_t authority_ends = 0;  // in seconds since 1970; 0 without an authority
    std::string problem;              // why the leaf is not as it should be; empty if it is

    bool operator==(const State&) const = default;
  };

  // `hosts` are names and addresses of the relay.
  OwnCertificate(std::string data, std::vector<std::string> hosts, Now now = wall_seconds);

  // Completes a renewal that was cut off, makes the authority if nothing is in its place, and the leaf in any
  // case. Returns sentences for the operator. Throws std::runtime_error with a sentence if the relay has no
  // certificate to show; nothing that machines may trust is replaced or removed.
  [[nodiscard]] std::vector<std::string> prepare();
  // Makes the leaf again if it has to be, and at least one look after the files have changed. Does not throw.
  [[nodiscard]] State look();

  // The files for LiveCertificate, and the one that machines trust.
  [[nodiscard]] CertificateFiles served() const { return leaf_files(data_); }
  [[nodiscard]] CertificateFiles trusted() const { return trusted_files(data_); }
  [[nodiscard]] const Now& now() const { return now_; }

 private:
  void make_missing_authority() const;
  void keep(bool always);
  void keep_leaf(const ChainAndKey& authority, bool always);
  void keep_copy();
  [[nodiscard]] std::string stamp() const;

  const std::string data_;
  const std::vector<std::string> hosts_;
  const Now now_;
  State state_;
  std::string kept_;  // the stamp of the files when they were judged last
  std::string seen_;  // the stamp of the last look
  // The dates between which files that have not changed are not judged again, in seconds since 1970.
  std::int64_t since_ = 0;
  std::int64_t due_ = 0;
};

}  // namespace vlk::relay
