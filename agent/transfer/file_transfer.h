// Whole files between the machine and the representative, over the one connection.
// Deliberately bare: no progress, no resumption, no sums, no temporary names. The connection keeps bytes in
// order and whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "wire/messages.h"

namespace vlk::agent {

inline constexpr std::size_t kChunkSize = 0x40000;  // bytes of a file in one chunk that the agent sends
inline constexpr std::size_t kChunkHeaderSize = 8;  // transfer id u32, chunk index u32, big-endian

// Sends a file on a thread of its own, which nothing waits for and nothing stops but the file's end or a send
// that fails. `send` must stay callable for as long. Throws std::system_error when there can be no
// further thread.
void StartDownload(std::uint32_t session_id, std::uint32_t transfer_id, std::string path, SendCallable send);

// Uploads: a table of open files by transfer id that outlives sessions and connections. The connection
// thread's.

// Empties or makes the file, and the folders above it. `size` is what the representative announced; nobody
// compares it. A file that cannot be opened goes unmentioned, and its chunks find no entry. An id that is
// taken goes over to the new file, and the earlier one stays open until the process ends.
void BeginUpload(std::uint32_t transfer_id, std::string_view path, std::int64_t size);
// Appends; an unknown id is ignored, and so is a write that fails. May block for as long as the disk takes.
void WriteUploadChunk(std::uint32_t transfer_id, const unsigned char* data, std::size_t size);
// Closes the file, whether it is whole or not. An unknown id is ignored.
void EndUpload(std::uint32_t transfer_id);

// Makes the folders above a path's last part, from the top. Those that exist stay as they are.
void EnsureParentDirectories(const std::wstring& path);

}  // namespace vlk::agent
