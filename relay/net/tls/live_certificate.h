// The relay's certificate while the relay runs: its files are read again when they change, so that a new
// certificate needs no restart.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include <boost/asio/any_io_executor.hpp>

#include "relay/base/log.h"
#include "relay/base/threads/mutex.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/net/tls/certificate.h"
#include "relay/net/tls/own_certificate.h"
#include "relay/net/tls/tls_context.h"

namespace vlk::relay {

// A thread of its own looks at the files, and first lets the relay's own certificate renew itself, if they
// are its files. A changed pair is read when both files have stayed the same for one look. A pair that cannot
// be used leaves the one before in use, is logged once, and is tried again at each look. Everything else is
// used on the relay's one thread.
class LiveCertificate {
 public:
  // Reads the files before it returns, and throws std::runtime_error with a sentence for the operator if they
  // cannot be used. `log` outlives this object. `executor` is that of the relay's thread; this object is
  // destroyed when its context no longer runs. `own` is prepared, and null for an operator's files.
  LiveCertificate(CertificateFiles files, std::chrono::milliseconds interval,
                  boost::asio::any_io_executor executor, const Log& log,
                  std::shared_ptr<OwnCertificate> own = {});
  ~LiveCertificate();
  LiveCertificate(const LiveCertificate&) = delete;
  LiveCertificate& operator=(const LiveCertificate&) = delete;

  // The settings for a new connection. Valid until the loop's next job; connections keep what they need.
  [[nodiscard]] SSL_CTX* context() const { return tls_.get(); }
  // Reads the files again at once, whether they have changed or not.
  void reload();
  // Logs once a day that the certificate or its authority ends soon or has ended. To be called often, with
  // the date in seconds since 1970.
  void tick(std::int64_t now);

  // The dates between which the certificate in use is valid, in seconds since 1970.
  [[nodiscard]] std::int64_t begins() const { return begins_; }
  [[nodiscard]] std::int64_t ends() const { return ends_; }
  // When the relay's own authority ends; 0 if it has none.
  [[nodiscard]] std::int64_t authority_ends() const { return own_state_.authority_ends; }
  // How often a pair was read again and taken into use, and how often a pair could not be used.
  [[nodiscard]] std::uint64_t reloads() const { return reloads_; }
  [[nodiscard]] std::uint64_t failures() const { return failures_; }
  // Why the files cannot be used at present, or the own certificate is not as it should be; empty if all is
  // well.
  [[nodiscard]] const std::string& problem() const {
    return problem_.empty() ? own_state_.problem : problem_;
  }

 private:
  struct Found {
    TlsContext tls{nullptr, &SSL_CTX_free};
    std::string problem;  // set if `tls` is null
  };

  [[nodiscard]] std::string stamp() const;
  [[nodiscard]] Found look() const;
  void watch(std::string seen);
  void renew();
  void apply(Found found);
  void apply(OwnCertificate::State state);
  void use(TlsContext tls);

  const ThreadChecker thread_;
  const CertificateFiles files_;
  const std::chrono::milliseconds interval_;
  const boost::asio::any_io_executor executor_;
  const Log& log_;
  const std::shared_ptr<OwnCertificate> own_;  // used by the watching thread, once that runs
  const OwnCertificate::Now now_;
  TlsContext tls_;
  OwnCertificate::State own_state_;
  std::int64_t begins_ = 0;
  std::int64_t ends_ = 0;
  std::int64_t warned_ = 0;  // the date of the last warning
  std::uint64_t reloads_ = 0;
  std::uint64_t failures_ = 0;
  std::string problem_;

  Mutex lock_;
  ConditionVariable changed_;
  bool end_ RELAY_GUARDED_BY(lock_) = false;
  bool asked_ RELAY_GUARDED_BY(lock_) = false;
  OwnCertificate::State renewed_;  // of the watching thread: what it has passed on
  std::thread watcher_;
};

}  // namespace vlk::relay
