// File transfers between the machine and the representative, over the one connection. Deliberately simple: no
// progress, no resumption, no checksums, no temporary names. The connection keeps bytes in order and
// complete.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "wire/messages.h"

namespace vlk::agent {

inline constexpr std::size_t kChunkSize = 0x40000;  // bytes of a file in one chunk that the agent sends
inline constexpr std::size_t kChunkHeaderSize = 8;  // transfer id u32, chunk index u32, big-endian

// Sends a file on a new thread. Nothing waits for the thread; only the end of the file or a failed send ends
// it. `send` must stay callable until then. Throws std::system_error if no thread can be created.
void StartDownload(std::uint32_t session_id, std::uint32_t transfer_id, std::string path, SendCallable send);

// Uploads use a table of open files by transfer id, which outlives sessions and connections. Called on the
// connection thread.

// Creates or empties the file, and creates the folders above it. `size` is what the representative announced;
// it is not checked. A file that cannot be opened is not reported, and its chunks are ignored. An id in use
// then means the new file, and the earlier file stays open until the process ends.
void BeginUpload(std::uint32_t transfer_id, std::string_view path, std::int64_t size);
// Appends to the file. An unknown id and a failed write are ignored. Blocks for as long as the disk takes.
void WriteUploadChunk(std::uint32_t transfer_id, const unsigned char* data, std::size_t size);
// Closes the file, complete or not. An unknown id is ignored.
void EndUpload(std::uint32_t transfer_id);

// Creates the folders above a path's last part, from the top. Existing folders are left unchanged.
void EnsureParentDirectories(const std::wstring& path);

}  // namespace vlk::agent
