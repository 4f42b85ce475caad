// Carries out verify-trail and prints the verdict.
#include "relay/storage/trail/check/command.h"

#include <exception>
#include <filesystem>
#include <optional>
#include <ostream>

#include "relay/storage/trail/check/verify.h"
#include "relay/storage/trail/key.h"

namespace vlk::relay {
namespace {

constexpr char kUsage[] =
    "usage: vantelink-relay verify-trail FILE [--key FILE]\n"
    "       vantelink-relay verify-trail --data DIR [--key FILE]\n";

// A data folder has its own public key beside the database. Whoever can write there can also change the key,
// so a copy from elsewhere is better.
std::optional<Bytes> key_of(const TrailCall& call) {
  if (!call.key.empty()) return read_trail_public_key(call.key);
  const std::string own = call.data + '/' + kTrailPublicFile;
  if (!call.data.empty() && std::filesystem::exists(own)) return read_trail_public_key(own);
  return std::nullopt;
}

void print(const TrailVerdict& verdict, const std::optional<Bytes>& key, std::ostream& out) {
  if (!verdict.intact) {
    out << "The trail was touched";
    if (verdict.row) out << ", first at row " << *verdict.row;
    out << ". " << verdict.problem << '\n';
    return;
  }
  out << "The trail is intact: " << verdict.rows << " rows, " << verdict.heads << " signed heads.\n";
  if (verdict.signed_through > 0)
    out << "Signed through row " << verdict.signed_through
        << ". Rows after it could be removed from the end without a trace.\n";
  if (key) {
    out << "Public key: " << key_fingerprint(*key) << '\n';
  } else {
    out << "No key was given, so signatures count only if the key in the file is the relay's own; "
           "--key FILE checks them with trail-key.pub.\n";
  }
}

}  // namespace

int verify_trail_command(const TrailCall& call, std::ostream& out, std::ostream& err) {
  if (call.file.empty() == call.data.empty()) {
    err << kUsage;
    return kTrailUnreadable;
  }
  try {
    const auto key = key_of(call);
    const std::string address = call.data.empty() ? call.file : call.data + "/relay.db";
    const bool is_database = !call.data.empty() || is_postgresql(call.file);
    const TrailVerdict verdict = is_database ? verify_database(address, key) : verify_export(call.file, key);
    print(verdict, key, out);
    return verdict.intact ? kTrailIntact : kTrailTouched;
  } catch (const std::exception& failure) {
    err << "vantelink-relay: " << failure.what() << '\n';
    return kTrailUnreadable;
  }
}

}  // namespace vlk::relay
