// Reads and writes the files of the relay's own certificate.
#include "relay/net/tls/own_certificate.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <utility>

#include "relay/base/file_stamp.h"
#include "relay/net/private_files.h"

namespace fs = std::filesystem;

namespace vlk::relay {
namespace {

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
// The time between two attempts to make a leaf, in seconds.
constexpr std::int64_t kRetry = 60;

std::string read_file(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  std::string content{std::istreambuf_iterator<char>(in), {}};
  if (!in) throw std::runtime_error("cannot read " + file);
  return content;
}

// The date from which on a certificate has less than a third of its time left.
std::int64_t renewal_of(const Certificate& leaf) {
  return end_of(leaf.get()) - (end_of(leaf.get()) - begin_of(leaf.get())) / 3;
}

std::vector<std::string> permitted_names(const Certificate& authority,
                                         const std::vector<std::string>& hosts) {
  std::vector<std::string> names = names_for(hosts);
  std::erase_if(names, [&](const std::string& name) { return !permits(authority, name); });
  return names;
}

}  // namespace

CertificateFiles trusted_files(const std::string& data) {
  return {data + '/' + kTrustedFile, data + '/' + kTrustedKeyFile};
}

CertificateFiles leaf_files(const std::string& data) {
  return {data + '/' + kLeafFile, data + '/' + kLeafFile};
}

CertificateFiles next_files(const std::string& data) {
  return {data + '/' + kNextFile, data + '/' + kNextKeyFile};
}

ChainAndKey read_pair(const CertificateFiles& files) {
  const std::string advice = "; restore it from a backup";
  ChainAndKey pair{read_chain(files.certificate), {}};
  if (pair.chain.empty())
    throw std::runtime_error(files.certificate + " cannot be read, or has no certificate in PEM form" +
                             advice);
  require_private(files.key, "the private key");
  pair.key = read_key(files.key);
  if (!pair.key)
    throw std::runtime_error(files.key + " cannot be read, or has no private key in PEM form" + advice);
  if (!belong_together(pair.chain.front(), pair.key)) {
    throw std::runtime_error("the certificate " + files.certificate + " does not belong to the key " +
                             files.key + "; restore both from one backup");
  }
  return pair;
}

void write_pair(const CertificateFiles& files, const CertificateAndKey& pair) {
  write_durably(files.key, pem_of(pair.key.get()), 0600);
  write_durably(files.certificate, pem_of(pair.certificate.get()), 0644);
}

void complete_renewal(const std::string& data) {
  const CertificateFiles next = next_files(data);
  const CertificateFiles trusted = trusted_files(data);
  if (!fs::exists(next.certificate) || fs::exists(next.key)) return;
  const std::vector<Certificate> chain = read_chain(next.certificate);
  const PrivateKey key = read_key(trusted.key);
  if (chain.empty() || !key || !belong_together(chain.front(), key))
    throw std::runtime_error(next.key + " is missing, though " + next.certificate +
                             " exists; restore it from a backup, or remove " + next.certificate);
  rename_durably(next.certificate, trusted.certificate);
}

std::vector<std::string> names_not_permitted(const Certificate& authority,
                                             const std::vector<std::string>& hosts) {
  std::vector<std::string> names = names_for(hosts);
  std::erase_if(names, [&](const std::string& name) { return permits(authority, name); });
  return names;
}

std::string fault_of_leaf(const CertificateFiles& leaf, const Certificate& authority,
                          const std::vector<std::string>& hosts, std::int64_t now) {
  const std::vector<Certificate> chain = read_chain(leaf.certificate);
  if (chain.empty()) return "cannot be read";
  const PrivateKey key = read_key(leaf.key);
  if (!key || !belong_together(chain.front(), key)) return "has no key that belongs to it";
  if (!has_signed(authority, chain.front())) return "is of another authority";
  if (names_of(chain.front().get()) != permitted_names(authority, hosts)) return "is for other names";
  if (begin_of(chain.front().get()) > now) return "is not valid yet";
  // A leaf that ends with its authority cannot be made to last longer.
  const bool last = end_of(chain.front().get()) >= end_of(authority.get());
  if (!last && renewal_of(chain.front()) <= now) return "has a third of its time left or less";
  return {};
}

OwnCertificate::OwnCertificate(std::string data, std::vector<std::string> hosts, Now now)
    : data_(std::move(data)), hosts_(std::move(hosts)), now_(std::move(now)) {}

std::vector<std::string> OwnCertificate::prepare() {
  complete_renewal(data_);
  make_missing_authority();
  std::vector<std::string> remarks;
  try {
    keep(true);
  } catch (const std::runtime_error& failure) {
    // For instance because the disk is full. The leaf before is as good as any other while it is valid.
    keep(false);
    remarks.push_back(std::string("The relay's certificate stays as it was: ") + failure.what());
  }
  kept_ = seen_ = stamp();
  const ChainAndKey trusted = read_pair(trusted_files(data_));
  if (!is_authority(trusted.chain.front().get())) {
    remarks.push_back("The certificate " + trusted_files(data_).certificate +
                      " is a self-signed one of an older version; it is used until it ends at " +
                      date_text(end_of(trusted.chain.front().get())) +
                      ". Before that, make an authority with: vantelink-relay authority prepare");
  }
  return remarks;
}

// The key is written first and the leaf last, so a key without both comes from a first start that was cut
// off, and can be replaced. Machines may trust everything else already, so the operator must decide.
void OwnCertificate::make_missing_authority() const {
  const CertificateFiles files = trusted_files(data_);
  if (fs::exists(files.certificate)) {
    if (!fs::exists(files.key))
      throw std::runtime_error(files.key + " is missing, though " + files.certificate +
                               " exists; restore it from a backup");
    return;
  }
  if (fs::exists(files.key) && fs::exists(served().certificate)) {
    throw std::runtime_error(files.certificate + " is missing, though " + files.key +
                             " exists; restore it from a backup, or copy it from the second part of " +
                             served().certificate);
  }
  write_pair(files, make_authority(hosts_, now_()));
}

OwnCertificate::State OwnCertificate::look() {
  const std::string now = stamp();
  // Programs replace two files one after the other, so a change counts when it has stayed for one look.
  const bool settled = now == std::exchange(seen_, now);
  const bool valid = now_() >= since_ && now_() < due_;
  if (!settled || (now == kept_ && valid)) return state_;
  try {
    keep(false);
  } catch (const std::exception& failure) {
    state_.problem = failure.what();
    since_ = now_();
    due_ = now_() + kRetry;
  }
  kept_ = seen_ = stamp();
  return state_;
}

void OwnCertificate::keep(bool always) {
  const ChainAndKey trusted = read_pair(trusted_files(data_));
  if (is_authority(trusted.chain.front().get())) return keep_leaf(trusted, always);
  keep_copy();
}

void OwnCertificate::keep_leaf(const ChainAndKey& authority, bool always) {
  const Certificate& issuer = authority.chain.front();
  state_.authority_ends = end_of(issuer.get());
  std::string outside;
  for (const std::string& name : names_not_permitted(issuer, hosts_))
    outside += (outside.empty() ? "" : ", ") + name;
  const std::vector<std::string> names = permitted_names(issuer, hosts_);
  if (names.empty()) {
    throw std::runtime_error("the authority " + trusted_files(data_).certificate +
                             " permits none of the relay's names (" + outside +
                             "); make a new one with: vantelink-relay authority prepare");
  }
  if (always || !fault_of_leaf(served(), issuer, hosts_, now_()).empty()) {
    const CertificateAndKey leaf = make_leaf(issuer, authority.key, names, now_());
    write_durably(served().certificate,
                  pem_of(leaf.key.get()) + pem_of(leaf.certificate.get()) + pem_of(issuer.get()), 0600);
  }
  const std::vector<Certificate> leaf = read_chain(served().certificate);
  if (leaf.empty()) throw std::runtime_error("cannot read " + served().certificate);
  since_ = begin_of(leaf.front().get());
  due_ = end_of(leaf.front().get()) >= state_.authority_ends ? kNever : renewal_of(leaf.front());
  state_.problem = outside.empty()
                       ? ""
                       : "the authority " + trusted_files(data_).certificate + " does not permit " + outside +
                             "; make a new one for all names of --host with: vantelink-relay "
                             "authority prepare";
}

void OwnCertificate::keep_copy() {
  const CertificateFiles files = trusted_files(data_);
  const std::string content = read_file(files.key) + '\n' + read_file(files.certificate);
  std::error_code error;
  if (!fs::exists(served().certificate, error) || read_file(served().certificate) != content)
    write_durably(served().certificate, content, 0600);
  state_ = {};
  since_ = 0;
  due_ = kNever;
}

std::string OwnCertificate::stamp() const {
  const CertificateFiles trusted = trusted_files(data_);
  return file_stamp(trusted.certificate) + '\n' + file_stamp(trusted.key) + '\n' +
         file_stamp(served().certificate);
}

}  // namespace vlk::relay
