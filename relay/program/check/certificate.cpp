// Checks the certificate and its key.
#include "relay/net/tls/certificate.h"

#include <ctime>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <utility>
#include <vector>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "relay/net/private_files.h"
#include "relay/net/tls/handles.h"
#include "relay/net/tls/tls_context.h"
#include "relay/program/check/checks.h"
#include "relay/storage/trail/entry.h"

namespace vlk::relay {
namespace {

constexpr std::time_t kDaySeconds = 24 * 3600;

// The relay has nobody to ask for a pass phrase.
int no_pass_phrase(char*, int, int, void*) {
  return 0;
}

std::vector<Certificate> read_chain(const std::string& file) {
  const Bio bio(BIO_new_file(file.c_str(), "r"));
  std::vector<Certificate> chain;
  while (bio) {
    Certificate next(PEM_read_bio_X509(bio.get(), nullptr, no_pass_phrase, nullptr));
    if (!next) break;
    chain.push_back(std::move(next));
  }
  return chain;
}

Key read_key(const std::string& file) {
  const Bio bio(BIO_new_file(file.c_str(), "r"));
  return Key(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, no_pass_phrase, nullptr) : nullptr);
}

std::time_t time_of(const ASN1_TIME* time) {
  std::tm parts{};
  return ASN1_TIME_to_tm(time, &parts) == 1 ? ::timegm(&parts) : 0;
}

std::string day_of(std::time_t time) {
  return iso_time(std::int64_t{time} * 1000).substr(0, 10);
}

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
                             " cannot be read, or has no certificate in PEM form" + remedy());
    }
    if (has_key && check_pair()) check_order();
    check_times();
    for (const std::string& host : hosts)
      check_host(host);
  }

 private:
  [[nodiscard]] std::string remedy() const {
    return self_made_ ? "; delete " + files_.certificate + " and " + files_.key +
                            " and restart the relay, which makes new ones"
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
    const std::time_t now = std::time(nullptr);
    std::time_t last = 0;
    for (const Certificate& certificate : chain_) {
      const std::time_t begin = time_of(X509_get0_notBefore(certificate.get()));
      const std::time_t end = time_of(X509_get0_notAfter(certificate.get()));
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
  Key key_;
};

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
  const CertificateFiles files{options.data + "/relay-cert.pem", options.data + "/relay-key.pem"};
  std::error_code error;
  const bool has_certificate = std::filesystem::exists(files.certificate, error);
  if (!has_certificate)
    return findings.ok("the next start of the relay makes a self-signed certificate in " + options.data);
  CertificateCheck(files, true, findings).run(options.hosts);
}

}  // namespace vlk::relay
