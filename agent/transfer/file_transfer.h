// File transfers between the machine and the representative, over the connection to the relay. They are
// deliberately simple: no progress, no resumption, no checksums, no temporary names. The connection keeps
// bytes in order and complete.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "wire/messages.h"

namespace vlk::agent {

inline constexpr std::size_t kChunkSize = 0x40000;  // bytes of a file in one chunk that the agent sends
inline constexpr std::size_t kChunkHeaderSize = 8;  // transfer id u32, chunk index u32, big-endian

// Sends a file on a new thread. The thread ends when the file cannot be opened, is sent completely, or a
// message cannot be sent; nothing waits for it. `send` must stay callable until then. Throws
// std::system_error if no thread can be created.
void StartDownload(std::uint32_t session_id, std::uint32_t transfer_id, std::string path, SendCallable send);

// Uploads use a table of open files by transfer id, which outlives sessions and connections. The functions
// for uploads are called on the connection thread.

// Creates or empties the file, and creates the folders above it. `size` is the size that the representative
// announced; it is not checked. A file that cannot be opened is not reported, and its chunks are ignored. If
// the id is already in use, it refers to the new file from then on, and the earlier file stays open until the
// process ends.
void BeginUpload(std::uint32_t transfer_id, std::string_view path, std::int64_t size);
// Appends to the file. An unknown id and a failed write are ignored. Blocks for as long as the disk takes.
void WriteUploadChunk(std::uint32_t transfer_id, const unsigned char* data, std::size_t size);
// Closes the file, complete or not. An unknown id is ignored.
void EndUpload(std::uint32_t transfer_id);

// Creates all folders of a path, from the outermost on; the path's last part is not created. Existing folders
// are left unchanged.
void EnsureParentDirectories(const std::wstring& path);

}  // namespace vlk::agent
