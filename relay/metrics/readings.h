// What an operator wants to know about the running relay, read when somebody asks.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>

#include "relay/base/counting/loop_lag.h"
#include "relay/base/limits.h"
#include "relay/base/log.h"
#include "relay/net/connections.h"
#include "relay/net/tls/live_certificate.h"
#include "relay/session/parts.h"
#include "relay/storage/spool/spools.h"
#include "relay/storage/thread/database_thread.h"

namespace vlk::relay {

// The parts of the relay that are read; they outlive their users.
struct Sources {
  const Connections& connections;
  const Parts& parts;
  DatabaseThread& database;
  const Spools& spools;
  const Log& log;
  const LiveCertificate& certificate;
  const LoopLag& lag;
  const Limits& limits;
  std::filesystem::path data;  // the data folder
};

// The states that are counted, in the order of their counts.
inline constexpr std::array kStandings{Standing::Stranger, Standing::Waiting, Standing::Known};
inline constexpr std::array kMachineStates{MachineState::Waiting,     MachineState::Approved,
                                           MachineState::Refused,     MachineState::Blocked,
                                           MachineState::Quarantined, MachineState::UsedTwice};
inline constexpr std::array kSessionStates{SessionState::Asked, SessionState::Accepted, SessionState::Held};

// Everything that has to be counted or asked for at a reading. Memory and disk in bytes.
struct Readings {
  std::array<std::size_t, kMachineStates.size()> machines{};
  std::array<std::size_t, kSessionStates.size()> sessions{};
  std::size_t streams = 0;  // machines that send pictures
  std::uint64_t shown = 0;  // pictures that browsers have shown in the last second
  std::uint64_t agent_queues = 0;
  std::uint64_t browser_queues = 0;
  DatabaseThread::Load database{};
  std::uint64_t data_free = 0;   // on the file system of the data folder
  std::uint64_t spool_free = 0;  // on that of the spool
  std::uint64_t resident = 0;    // memory of the process
  std::size_t descriptors = 0;   // that are open
  std::size_t descriptor_limit = 0;
};

// To be called on the relay's thread. Takes as long as a walk over all machines and sessions does.
[[nodiscard]] Readings read_now(const Sources& sources);

// The bytes that are free for the relay on the file system of `folder`; 0 if the system does not say.
[[nodiscard]] std::uint64_t free_bytes(const std::filesystem::path& folder);

}  // namespace vlk::relay
