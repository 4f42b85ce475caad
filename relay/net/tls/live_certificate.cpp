// Watches the files of the certificate.
#include "relay/net/tls/live_certificate.h"

#include <filesystem>
#include <stdexcept>
#include <utility>

#include <boost/asio/post.hpp>
#include <openssl/x509.h>

#include "relay/base/clock.h"
#include "relay/base/file_stamp.h"
#include "relay/net/private_files.h"

namespace fs = std::filesystem;

namespace vlk::relay {
namespace {

constexpr std::int64_t kDay = std::int64_t{24} * 3600;  // seconds
constexpr std::uintmax_t kMostBytes = 1u << 20;         // of a file

const X509* leaf_of(const TlsContext& tls) {
  return SSL_CTX_get0_certificate(tls.get());
}

// A pipe, for instance, would hold up the thread.
void require_readable(const std::string& file) {
  std::error_code error;
  if (!fs::is_regular_file(file, error)) throw std::runtime_error(file + " is not a file");
  if (fs::file_size(file, error) > kMostBytes) throw std::runtime_error(file + " is too large");
}

}  // namespace

LiveCertificate::LiveCertificate(CertificateFiles files, std::chrono::milliseconds interval,
                                 boost::asio::any_io_executor executor, const Log& log,
                                 std::shared_ptr<OwnCertificate> own)
    : files_(std::move(files)),
      interval_(interval),
      executor_(std::move(executor)),
      log_(log),
      own_(std::move(own)),
      now_(own_ ? own_->now() : wall_seconds),
      tls_(nullptr, &SSL_CTX_free) {
  // The stamp is taken first, so that a change during the reading is seen as one.
  std::string seen = stamp();
  use(make_tls(files_));
  if (own_) {
    const ThreadChecker::Setup setup;
    renewed_ = own_->look();
    apply(renewed_);
  }
  watcher_ = std::thread([this, seen = std::move(seen)] { watch(seen); });
}

LiveCertificate::~LiveCertificate() {
  {
    const MutexLock guard(lock_);
    end_ = true;
  }
  changed_.notify_all();
  watcher_.join();
}

void LiveCertificate::reload() {
  {
    const MutexLock guard(lock_);
    asked_ = true;
  }
  changed_.notify_all();
}

std::string LiveCertificate::stamp() const {
  return file_stamp(files_.certificate) + '\n' + file_stamp(files_.key);
}

// Runs on the thread of its own. A program that replaces the files does so one after the other, so a pair is
// read when it has stayed the same for one interval.
void LiveCertificate::watch(std::string seen) {
  std::string last = seen;
  bool failed = false;
  for (;;) {
    bool asked = false;
    {
      const auto until = std::chrono::steady_clock::now() + interval_;
      const MutexLock guard(lock_);
      while (!end_ && !asked_ && std::chrono::steady_clock::now() < until)
        changed_.wait_until(lock_, until);
      if (end_) return;
      asked = std::exchange(asked_, false);
    }
    if (own_) renew();
    const std::string now = stamp();
    const bool settled = now == std::exchange(last, now);
    if (!asked && (!settled || (now == seen && !failed))) continue;
    Found found = look();
    if (stamp() != now) continue;
    seen = now;
    failed = !found.tls;
    boost::asio::post(
        executor_, [this, found = std::make_shared<Found>(std::move(found))] { apply(std::move(*found)); });
  }
}

void LiveCertificate::renew() {
  OwnCertificate::State state = own_->look();
  if (state == renewed_) return;
  renewed_ = state;
  boost::asio::post(executor_, [this, state = std::move(state)] { apply(state); });
}

LiveCertificate::Found LiveCertificate::look() const {
  try {
    require_readable(files_.certificate);
    require_readable(files_.key);
    require_private(files_.key, "the private key");
    TlsContext tls = make_tls(files_);
    const std::int64_t now = now_();
    if (end_of(leaf_of(tls)) <= now)
      throw std::runtime_error("the certificate " + files_.certificate + " ended at " +
                               date_text(end_of(leaf_of(tls))));
    if (begin_of(leaf_of(tls)) > now)
      throw std::runtime_error("the certificate " + files_.certificate + " is valid only from " +
                               date_text(begin_of(leaf_of(tls))) + " on");
    return {std::move(tls), {}};
  } catch (const std::exception& failure) {
    return {TlsContext(nullptr, &SSL_CTX_free), failure.what()};
  }
}

void LiveCertificate::apply(Found found) {
  thread_.check();
  if (found.tls) {
    use(std::move(found.tls));
    ++reloads_;
    problem_.clear();
    warned_ = 0;
    return log_.write("", "", "the certificate was loaded again; it ends at " + date_text(ends_));
  }
  if (problem_ == found.problem) return;
  problem_ = std::move(found.problem);
  ++failures_;
  log_.write("", "", "the certificate stays as it was, because " + problem_);
}

void LiveCertificate::apply(OwnCertificate::State state) {
  thread_.check();
  if (!state.problem.empty() && state.problem != own_state_.problem)
    log_.write("", "", "the certificate is not as it should be: " + state.problem);
  own_state_ = std::move(state);
}

void LiveCertificate::use(TlsContext tls) {
  begins_ = begin_of(leaf_of(tls));
  ends_ = end_of(leaf_of(tls));
  tls_ = std::move(tls);
}

void LiveCertificate::tick(std::int64_t now) {
  const std::int64_t authority = own_state_.authority_ends;
  const bool of_authority = authority != 0 && authority - now <= kCertificateWarning;
  const std::int64_t end = of_authority ? authority : ends_;
  if (end - now > kCertificateWarning || now - warned_ < kDay) return;
  warned_ = now;
  // A leaf is made again by itself; what machines trust is replaced by the operator.
  const bool trusted = own_ && (of_authority || authority == 0);
  const std::string what = of_authority ? "the relay's authority" : "the certificate";
  const std::string when = date_text(end) + " (" +
                           (trusted ? own_->trusted().certificate : files_.certificate) + ")" +
                           (trusted ? "; make a new authority with: vantelink-relay authority prepare" : "");
  if (end <= now) return log_.write("", "", what + " ended at " + when);
  log_.write("", "", what + " ends in " + std::to_string((end - now) / kDay) + " days, at " + when);
}

}  // namespace vlk::relay
