// Checks the certificate and its key.
#include "relay/net/tls/certificate.h"

#include <filesystem>
#include <stdexcept>
#include <utility>
#include <vector>

#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "relay/base/clock.h"
#include "relay/net/private_files.h"
#include "relay/net/tls/own_certificate.h"
#include "relay/net/tls/tls_context.h"
#include "relay/program/check/checks.h"
#include "relay/program/folder/data_folder.h"

namespace vlk::relay {
namespace {

constexpr std::int64_t kDaySeconds = 24 * 3600;

std::string day_of(std::int64_t time) {
  return date_text(time).substr(0, 10);
}

// What to do about a certificate of the relay's own that cannot go on.
constexpr char kNewAuthority[] =
    "; make a new authority with: vantelink-relay authority prepare, and use it with: vantelink-relay "
    "authority renew";

// Checks one pair of files and remembers where they are, for the messages.
class CertificateCheck {
 public:
  CertificateCheck(CertificateFiles files, bool self_made, Findings& findings)
      : files_(std::move(files)), self_made_(self_made), findings_(findings) {}

  void run(const std::vector<std::string>& hosts) {
    const bool has_key = check_key_file();
    chain_ = read_chain(files_.certificate);
    if (chain_.empty()) {
      return findings_.wrong("the certificate " + files_.certificate +
                             " cannot be read, or has no certificate in PEM form" +
                             (self_made_ ? "; restore it from a backup" : remedy()));
    }
    if (has_key && check_pair()) check_order();
    check_times();
    for (const std::string& host : hosts)
      check_host(host);
  }

 private:
  [[nodiscard]] std::string remedy() const {
    return self_made_ ? std::string(kNewAuthority)
                      : "; get a new one from its authority, and check --cert and --key";
  }
  bool check_key_file() {
    try {
      require_private(files_.key, "the private key");
    } catch (const std::runtime_error& failure) {
      findings_.wrong(failure.what());
    }
    key_ = read_key(files_.key);
    if (key_) return true;
    findings_.wrong("the private key " + files_.key +
                    " cannot be read, has a pass phrase, or is not in PEM form; check --key");
    return false;
  }
  bool check_pair() {
    if (X509_check_private_key(chain_.front().get(), key_.get()) == 1) {
      try {
        static_cast<void>(make_tls(files_));
        return true;
      } catch (const std::runtime_error& failure) {
        findings_.wrong(failure.what() + remedy());
        return false;
      }
    }
    for (const Certificate& other : chain_) {
      if (X509_check_private_key(other.get(), key_.get()) != 1) continue;
      findings_.wrong("the relay's own certificate is not the first one in " + files_.certificate +
                      "; put it first, and behind each certificate that of its issuer");
      return false;
    }
    findings_.wrong("the certificate " + files_.certificate + " does not belong to the key " + files_.key +
                    "; name the two files that were made together");
    return false;
  }
  void check_order() {
    for (std::size_t i = 0; i + 1 < chain_.size(); ++i) {
      if (X509_check_issued(chain_[i + 1].get(), chain_[i].get()) == X509_V_OK) continue;
      return findings_.warning("certificate " + std::to_string(i + 2) + " in " + files_.certificate +
                               " is not the issuer of the one before it, so agents may refuse the chain; put "
                               "behind each certificate that of its issuer, and remove others");
    }
    X509* const last = chain_.back().get();
    if (chain_.size() == 1 && X509_check_issued(last, last) != X509_V_OK) {
      findings_.warning(
          files_.certificate +
          " has no certificate of the issuer, so agents may refuse it; use the file with the whole "
          "chain");
    }
  }
  void check_times() {
    const std::int64_t now = wall_seconds();
    std::int64_t last = 0;
    for (const Certificate& certificate : chain_) {
      const std::int64_t begin = begin_of(certificate.get());
      const std::int64_t end = end_of(certificate.get());
      if (begin > now) {
        return findings_.wrong("the certificate " + files_.certificate + " is not valid before " +
                               day_of(begin) + "; check the clock, or get another");
      }
      if (end < now) {
        return findings_.wrong("the certificate " + files_.certificate + " has expired on " + day_of(end) +
                               remedy());
      }
      if (last == 0 || end < last) last = end;
    }
    const std::string text = "the certificate " + files_.certificate + " is valid until " + day_of(last);
    if (last - now >= kCertificateWarning) return findings_.ok(text);
    findings_.warning(text + ", for less than " + std::to_string(kCertificateWarning / kDaySeconds) +
                      " days" + remedy());
  }
  void check_host(const std::string& host) {
    if (is_for_host(chain_.front().get(), host)) return findings_.ok("the certificate is for " + host);
    findings_.wrong("the certificate " + files_.certificate + " is not for " + host + remedy());
  }

  const CertificateFiles files_;
  const bool self_made_;
  Findings& findings_;
  std::vector<Certificate> chain_;
  PrivateKey key_;
};

// Checks the leaf of the relay's own authority. A relay that runs should have made it again by itself.
void check_leaf(const Options& options, const Certificate& authority, Findings& findings) {
  const std::string file = leaf_files(options.data).certificate;
  const std::int64_t now = wall_seconds();
  const std::string fault = fault_of_leaf(leaf_files(options.data), authority, options.hosts, now);
  if (fault.empty()) {
    return findings.ok("the relay's certificate " + file + " is valid until " +
                       day_of(end_of(read_chain(file).front().get())) + " and renews itself");
  }
  if (!relay_of(options.data)) return findings.ok("the next start of the relay makes " + file);
  const std::vector<Certificate> chain = read_chain(file);
  const std::string text = "the relay's certificate " + file + ' ' + fault +
                           "; restart the relay, and see in its log why it was not made again";
  if (chain.empty() || end_of(chain.front().get()) <= now) return findings.wrong(text);
  findings.warning(text);
}

void check_authority(const Options& options, Findings& findings) {
  const CertificateFiles files = trusted_files(options.data);
  const Certificate authority = std::move(read_pair(files).chain.front());
  const std::int64_t now = wall_seconds();
  const std::int64_t end = end_of(authority.get());
  const std::string name = "the authority " + files.certificate;
  if (begin_of(authority.get()) > now) {
    findings.wrong(name + " is not valid before " + day_of(begin_of(authority.get())) + "; check the clock");
  } else if (end <= now) {
    findings.wrong(name + " has expired on " + day_of(end) + kNewAuthority);
  } else if (end - now <= kCertificateWarning) {
    findings.warning(name + " is valid until " + day_of(end) + ", for less than " +
                     std::to_string(kCertificateWarning / kDaySeconds) + " days" + kNewAuthority);
  } else {
    findings.ok(name + " is valid until " + day_of(end));
  }
  for (const std::string& host : options.hosts) {
    if (permits(authority, host)) {
      findings.ok("the authority permits " + host);
    } else {
      findings.wrong(name + " does not permit " + host + ", so agents and browsers cannot use this name" +
                     kNewAuthority);
    }
  }
  check_leaf(options, authority, findings);
}

void check_next_authority(const Options& options, Findings& findings) {
  const CertificateFiles next = next_files(options.data);
  std::error_code error;
  if (!std::filesystem::exists(next.certificate, error)) return;
  const ChainAndKey pair = read_pair(next);
  for (const std::string& name : names_not_permitted(pair.chain.front(), options.hosts))
    return findings.warning("the prepared authority " + next.certificate + " does not permit " + name +
                            "; if no machine trusts it yet, remove it and prepare another");
  findings.ok("the authority " + next.certificate +
              " is prepared; when all machines trust it, use it with: vantelink-relay authority renew");
}

// An authority, or the self-signed certificate of an older version.
void check_own_certificate(const Options& options, Findings& findings) {
  const CertificateFiles files = trusted_files(options.data);
  std::error_code error;
  if (!std::filesystem::exists(files.certificate, error)) {
    if (std::filesystem::exists(files.key, error) &&
        std::filesystem::exists(leaf_files(options.data).certificate, error))
      return findings.wrong(files.certificate + " is missing; restore it from a backup");
    return findings.ok("the next start of the relay makes an authority in " + options.data);
  }
  const std::vector<Certificate> chain = read_chain(files.certificate);
  try {
    if (!chain.empty() && is_authority(chain.front().get())) {
      check_authority(options, findings);
    } else {
      CertificateCheck(files, true, findings).run(options.hosts);
      if (!chain.empty())
        findings.warning("the certificate " + files.certificate +
                         " is a self-signed one of an older version, and is not renewed" + kNewAuthority);
    }
    check_next_authority(options, findings);
  } catch (const std::runtime_error& failure) {
    findings.wrong(failure.what());
  }
}

}  // namespace

void check_certificate(const Options& options, Findings& findings) {
  if (!options.certificate.empty()) {
    // Without --host nothing says which names a certificate from elsewhere should have.
    const bool named = options.hosts != std::vector<std::string>{"localhost"};
    if (!named) findings.ok("no name was given with --host, so the certificate's names are not checked");
    CertificateCheck({options.certificate, options.key}, false, findings)
        .run(named ? options.hosts : std::vector<std::string>());
    return;
  }
  check_own_certificate(options, findings);
}

}  // namespace vlk::relay
