// One-time codes by time (TOTP, RFC 6238): six digits, SHA-1, steps of 30 seconds, as all authenticator
// applications support them. Also the backup codes for a lost device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "relay/base/bytes.h"

namespace vlk::relay {

inline constexpr std::size_t kTotpSecretBytes = 20;
inline constexpr std::size_t kTotpDigits = 6;
inline constexpr std::int64_t kTotpStepSeconds = 30;
inline constexpr std::size_t kBackupCodes = 10;

[[nodiscard]] Bytes new_totp_secret();

// The secret in base32, for typing it into an authenticator.
[[nodiscard]] std::string totp_secret_text(const Bytes& secret);

// The address that an authenticator reads from a QR code. `account` is the person's name.
[[nodiscard]] std::string totp_uri(const Bytes& secret, std::string_view account);

// The step to which `code` belongs; nothing if the code is wrong. The step of `now` (seconds since 1970), the
// one before it and the one after it are accepted, because clocks differ. `last_step` is the step of the last
// accepted code: it and earlier steps are refused, so that a code that was overheard cannot be used again.
// The time taken does not depend on the code.
[[nodiscard]] std::optional<std::int64_t> accepted_totp_step(const Bytes& secret, std::string_view code,
                                                             std::int64_t now, std::int64_t last_step);

// kBackupCodes new codes of 50 random bits. Each is stored as a hash by backup_code_hash and used once.
[[nodiscard]] std::vector<std::string> new_backup_codes();
// Upper and lower case, spaces and hyphens in the typed code make no difference. `person` makes the hashes of
// two people's codes differ.
[[nodiscard]] Bytes backup_code_hash(std::int64_t person, std::string_view code);

}  // namespace vlk::relay
