// Downloads, each on its own thread, and the table of uploads.
#include "transfer/file_transfer.h"

#include <map>
#include <utility>
#include <vector>

#include "net/thread_records.h"
#include "platform/files/file_system.h"
#include "platform/text.h"
#include "platform/threads/detached_thread.h"
#include "platform/threads/mutex.h"
#include "wire/big_endian.h"
#include "wire/json.h"

namespace vlk::agent {
namespace {

// The smallest index of a backslash that can end a folder's name; the characters before it are the drive,
// "C:\".
constexpr std::size_t kFirstSeparator = 3;

struct DownloadJob {
  std::string path;  // UTF-8, as received
  std::uint32_t transfer_id = 0;
  SendCallable send;
  std::uint32_t session_id = 0;  // sent with every message of this transfer
};

// Guards the table and the writes to its files. No other lock is taken while it is held.
Mutex UploadTableMutex;
std::map<std::uint32_t, UniqueStream> UploadTable VLK_GUARDED_BY(UploadTableMutex);

void send_end(const DownloadJob& job, const JsonWriter& fields) {
  const std::string text = fields.finish();
  job.send(Msg::FileTransferEnd, job.session_id, reinterpret_cast<const unsigned char*>(text.data()),
           text.size(), kJsonPayload);
}

void run_download(const DownloadJob& job) {
  UniqueStream file = OpenFile(Utf8ToWide(job.path), L"rb");
  if (!file) {
    send_end(job, JsonWriter()
                      .add_int("transfer_id", job.transfer_id)
                      .add_bool("ok", false)
                      .add_string("error", "cannot open"));
    return;
  }
  // The buffer has room for the header before the file's bytes, so that a chunk is sent without copying the
  // bytes.
  std::vector<unsigned char> chunk(kChunkHeaderSize + kChunkSize);
  std::uint32_t index = 0;
  std::size_t count = 0;
  while ((count = std::fread(chunk.data() + kChunkHeaderSize, 1, kChunkSize, file.get())) > 0) {
    put_u32_be(chunk.data(), job.transfer_id);
    put_u32_be(chunk.data() + 4, index);
    if (!job.send(Msg::FileChunk, job.session_id, chunk.data(), kChunkHeaderSize + count, kBinaryPayload))
      return;
    ++index;
    // A short read deliberately counts as the end of the file, although it may be a failure to read. The
    // transfer is reported as successful in both cases.
    if (count < kChunkSize) break;
  }
  file.reset();
  send_end(job, JsonWriter().add_int("transfer_id", job.transfer_id).add_bool("ok", true));
}

}  // namespace

void StartDownload(std::uint32_t session_id, std::uint32_t transfer_id, std::string path, SendCallable send) {
  start_detached_thread([job = DownloadJob{std::move(path), transfer_id, std::move(send), session_id}] {
    const ThreadRecords records;
    run_download(job);
  });
}

void BeginUpload(std::uint32_t transfer_id, std::string_view path, std::int64_t /*size*/) {
  const std::wstring wide = Utf8ToWide(path);
  EnsureParentDirectories(wide);
  UniqueStream file = OpenFile(wide, L"wb");
  if (!file) return;
  const MutexLock lock(UploadTableMutex);
  UniqueStream& entry = UploadTable[transfer_id];
  // An earlier file with this id deliberately stays open until the process ends.
  (void)entry.release();
  entry = std::move(file);
}

void WriteUploadChunk(std::uint32_t transfer_id, const unsigned char* data, std::size_t size) {
  const MutexLock lock(UploadTableMutex);
  const auto found = UploadTable.find(transfer_id);
  if (found == UploadTable.end()) return;
  // A full disk is deliberately ignored: the transfer continues.
  (void)std::fwrite(data, 1, size, found->second.get());
}

void EndUpload(std::uint32_t transfer_id) {
  const MutexLock lock(UploadTableMutex);
  UploadTable.erase(transfer_id);
}

void EnsureParentDirectories(const std::wstring& path) {
  for (std::size_t i = kFirstSeparator; i < path.size(); ++i) {
    if (path[i] == L'\\') CreateFolder(path.substr(0, i));
  }
}

}  // namespace vlk::agent
